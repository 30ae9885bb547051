"""A host that stays, and what it says to the module without waiting."""

import json
import signal
import time

from model import (ANSWER, BY_NUMBER, COMMAND, COMMAND_NODE, EVERYTHING, GET, SET, STATES, SUBSCRIBE, UNKNOWN_STATE,
                   UNSUBSCRIBE, Histories, state_name)
from product import Failure, decode, expect, wait_until
from world import Life

NEW_SESSION = "a session with the module begins"
NOT_SENT = "hostlink: there is no session; not sent"
MIC_MUTE = "VornHostlinkMicMutePath"


class Batch:
    """What happens without a wait: requests of the host one behind the other, and changes of nodes meanwhile. Each
    state has one writer, and is watched and unwatched only where nobody writes it: so its events are certain."""

    def __init__(self, world, host, is_ended_early):
        self._world, self._host, self._chance = world, host, world.chance
        self._model, self._conversation = world.model, world.conversation
        self._before = world.model.copy()
        self._histories = Histories(world.model)
        self._steps = []  # (is it the host's, what it does to a model)
        states = self._chance.sample([state.number for state in STATES], len(STATES))
        self._set_by_host, self._set_as_node, self._watched = states[:3], states[3:5], states[5:8]
        self._command_as_node = self._chance.random() < 0.5
        self._is_ended_early = is_ended_early
        if not self._command_as_node and not is_ended_early:
            self._watched.append(COMMAND)

    def run(self):
        kinds = [self._get, self._set, self._watch, self._unwatch, self._change_node]
        if not self._is_ended_early:
            kinds += [self._push] + [self._invoke_command] * self._command_as_node
        for _ in range(self._chance.randint(1, 40)):
            self._chance.choice(kinds)()

    def models(self, answered):
        """The module as it may be when the host's requests were handled up to any, but at least `answered` ones."""
        requests = sum(is_host for is_host, _ in self._steps)
        for handled in range(answered, requests + 1):
            model = self._before.copy()
            left = handled
            for is_host, apply in self._steps:
                if not is_host or left > 0:
                    apply(model)
                left -= is_host
            yield model

    def _request(self, line, apply):
        self._steps.append((True, apply))
        apply(self._model)
        self._host.request(line)

    def _some(self, numbers):
        return self._chance.sample(numbers, self._chance.randint(1, len(numbers)))

    def _get(self):
        numbers = self._some([number for number in EVERYTHING + [UNKNOWN_STATE]
                              if number != COMMAND or COMMAND in self._watched])
        self._world.tally["gets"] += 1
        certain, windows = {}, {}
        for number in numbers:
            if number in self._set_by_host:
                windows[number] = (0, self._histories.newest(number))
            elif number in self._set_as_node:
                windows[number] = (self._histories.newest(number), None)
            else:
                certain[number] = self._model.hand_over(number)
        self._expect_values(numbers, certain, windows)
        handed_over = COMMAND in numbers
        self._request("get " + " ".join(str(number) for number in numbers),
                      lambda model: handed_over and model.hand_over(COMMAND))

    def _expect_values(self, numbers, certain, windows):
        """The answer to a get. `windows`: indices of the first and last possible value; None is the newest there is
        when the answer comes."""
        histories = self._histories

        def is_right(identity, content):
            if identity != GET | ANSWER or [number for number, *_ in content] != numbers:
                return False
            for number, *value in content:
                if number in certain:
                    if tuple(value) != certain[number]:
                        return False
                    continue
                first, last = windows[number]
                last = histories.newest(number) if last is None else last
                if not histories.meet(number, tuple(value), first, last):
                    return False
            return True

        def expected():
            return [(state_name(number), certain.get(number) or histories.since(number, windows[number][0]))
                    for number in numbers]

        self._conversation.answers.append((f"get {[state_name(number) for number in numbers]}", is_right, expected))

    def _set(self):
        numbers = self._some(self._set_by_host + [UNKNOWN_STATE])
        self._world.tally["sets"] += 1
        words, answer, values = [], [], {}
        for number in numbers:
            word, result, value = self._draw_set(number)
            words.append(word)
            answer.append((number, *result))
            if value is not None:
                values[number] = value
        for number, value in values.items():
            on_wire = BY_NUMBER[number].on_wire(value)
            if value != self._model.values[number] and number in self._model.subscribed:
                self._conversation.events[number].append(on_wire)
            self._histories.add(number, on_wire)
        line = "set " + " ".join(words)
        self._conversation.expect_answer(line, SET, answer)

        def apply(model):
            for number, value in values.items():
                model.assign(number, value)

        self._request(line, apply)

    def _draw_set(self, number):
        """A word of the line, the result in the answer, and the value when that is taken."""
        if number not in BY_NUMBER:
            return f"{number}=u8:1", ("nil", None), None
        state = BY_NUMBER[number]
        if self._chance.random() < 0.1:
            return f"{state.name}=u16:1", ("u8", 0), None
        if state.name == "Volume" and self._chance.random() < 0.2:
            return f"Volume=u8:{self._chance.randint(101, 255)}", ("u8", 0), None
        value = state.draw(self._chance)
        return state.typed(value), ("u8", 1), value

    def _watch(self):
        numbers = self._some(self._watched)
        self._world.tally["subscriptions"] += 1
        line = "watch " + " ".join(str(number) for number in numbers)
        self._conversation.expect_answer(
            line, SUBSCRIBE, [number for number in numbers if number not in self._model.subscribed])
        for number in numbers:
            self._conversation.events[number].append(self._model.on_wire(number))

        def apply(model):
            model.subscribed.update(numbers)
            for number in numbers:
                model.hand_over(number)

        self._request(line, apply)

    def _unwatch(self):
        numbers = self._some(self._watched)
        self._world.tally["subscriptions"] += 1
        line = "unwatch " + " ".join(str(number) for number in numbers)
        self._conversation.expect_answer(
            line, UNSUBSCRIBE, [number for number in numbers if number in self._model.subscribed])
        self._request(line, lambda model: model.subscribed.difference_update(numbers))

    def _push(self):
        self._host.mic_mute = self._chance.random() < 0.5
        self._host.type(f"push HostMicMute={int(self._host.mic_mute)}")

    def _change_node(self):
        state = BY_NUMBER[self._chance.choice(self._set_as_node)]
        value = state.draw(self._chance)
        number, on_wire = state.number, state.on_wire(value)
        self._steps.append((False, lambda model: model.assign(number, value)))
        self._histories.add(number, on_wire)
        if self._model.assign(number, value) and number in self._model.subscribed:
            self._conversation.events[number].append(on_wire)
        self._world.tally["node changes"] += 1
        self._world.api.set(state.path, {state.field: value})
        self._host.pump()

    def _invoke_command(self):
        command = self._chance.randrange(256)
        if COMMAND in self._model.subscribed:
            self._conversation.events[COMMAND].append(("u8", command))
        else:
            self._model.command = command
        self._world.tally["node changes"] += 1
        self._world.api.invoke(COMMAND_NODE, {"i32_": command})


class Attended:
    """A host that stays, its keyboard and what it shows."""

    def __init__(self, world):
        self._world = world
        self.mic_mute = world.chance.random() < 0.5
        self._sessions = 0
        self._allowed_sessions = 1
        self._typed = 0
        self._echoed = 0
        self._host = None

        def is_ready(host):
            self._host = host
            self.pump()
            return self._sessions > 0

        self._host = world.start_host("attend", "--json", f"HostMicMute={int(self.mic_mute)}", is_ready=is_ready)
        self.life = Life(self._host)

    def type(self, line):
        self._host.type(line)

    def request(self, line):
        self._typed += 1
        self.type(line)

    def pump(self):
        while (line := self._host.next_line()) is not None:
            shown = json.loads(line)
            if shown.get("note") == NEW_SESSION:
                self._begin_session()
            elif shown.get("from") == "module":
                self._world.conversation.take(shown["message"])
            elif "message" in shown:
                identity = decode(shown["message"])[0]
                self._echoed += identity in (GET, SET, SUBSCRIBE, UNSUBSCRIBE)
            elif "stats" in shown:
                expect("messages of which parts did not fit together, at the host", 0,
                       shown["stats"]["messagesBroken"])

    def _begin_session(self):
        self._sessions += 1
        if self._sessions > self._allowed_sessions:
            raise Failure("a new session of the link, though both sides live")
        self._world.conversation.forget()

    def wait(self, what, condition):
        def look():
            self.pump()
            return condition()
        wait_until(what, look)

    def await_answers(self):
        """All answers, and with them all events before them."""
        conversation = self._world.conversation
        try:
            self.wait("the answers to all requests have come", lambda: not conversation.answers)
        except Failure as failure:
            raise Failure(f"{failure}\n  missing:  {[answer[0] for answer in conversation.answers][:3]}") from None

    def settle(self):
        """Awaits all that is under way; then reads everything. After that no event may be missing."""
        self.await_answers()
        model, conversation = self._world.model, self._world.conversation
        line = "get " + " ".join(str(number) for number in EVERYTHING)
        conversation.expect_answer(line, GET, [(number, *model.hand_over(number)) for number in EVERYTHING])
        self._world.tally["gets"] += 1
        self.request(line)
        self.await_answers()
        expect("events that have not come", {}, conversation.missing_events())
        expect("the node of the host's microphone", {"bool_": self.mic_mute}, self._world.api.get(MIC_MUTE))

    def await_handled(self):
        """Awaits that all requests are handled of which a former host may have been killed. Twice: what the first of
        such requests writes is there behind it only."""
        for _ in range(2):
            self._world.conversation.expect_answer("get", GET, [])
            self.request("send 0002")
            self.await_answers()

    def await_all_sent_or_refused(self):
        """Nothing that was typed reaches a later session."""
        def is_through():
            return self._echoed + self._host.errors_seen[NOT_SENT] >= self._typed
        self.wait("the host has sent or refused all that was typed", is_through)

    def allow_session(self):
        self._allowed_sessions += 1

    def await_session(self):
        self.wait("a session begins", lambda: self._sessions == self._allowed_sessions)

    def unsubscribe_all(self):
        """Returns what was subscribed."""
        line = "unwatch " + " ".join(str(number) for number in EVERYTHING)
        found = []

        def is_right(identity, content):
            found.extend(content)
            return identity == UNSUBSCRIBE | ANSWER

        self._world.conversation.answers.append((line, is_right, lambda: "an answer to unsubscribe"))
        self.request(line)
        self.await_answers()
        return set(found)

    def pause(self, seconds):
        self._host.send_signal(signal.SIGSTOP)
        time.sleep(seconds)
        self._host.send_signal(signal.SIGCONT)

    def end(self, number):
        if number is None:
            self._world.conversation.expect_answer("quit", GET, [])
            self.type("quit")
        self._world.end(self._host, number)
        self.pump()
