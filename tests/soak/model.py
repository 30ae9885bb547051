"""What must be true: the module's nodes and subscriptions as its host and its node API have made them."""

import collections
import copy

from product import Failure, decode, expect

GET, SET, SUBSCRIBE, CHANGED, UNSUBSCRIBE = 0x0002, 0x0001, 0x0003, 0x0004, 0x0005
ANSWER = 0x8000
SYSTEM_UP = 0x0020
UNKNOWN_STATE = 0x7777
LETTERS = "abcdefghijklmnopqrstuvwxyz ABC 0123456789 äöü€"


class State:
    """A state, the node behind it, and what both may hold."""

    def __init__(self, name, number, path, field, kind, is_setting, most=0):
        self.name, self.number, self.path, self.field = name, number, path, field
        self.kind, self.is_setting, self.most = kind, is_setting, most

    def draw(self, chance):
        if self.field == "bool_":
            return chance.random() < 0.5
        if self.field == "string_":
            return "x" + "".join(chance.choice(LETTERS) for _ in range(chance.randrange(40))) + "x"
        return chance.randint(-self.most - 1 if self.kind == "i32" else 0, self.most)

    def on_wire(self, value):
        return (self.kind, int(value) if self.field == "bool_" else value)

    def typed(self, value):
        """A value as the attended host's `set` takes it."""
        return f'"{self.name}={self.kind}:{self.on_wire(value)[1]}"'


STATES = [
    State("Volume", 0x0009, "/player/volume", "i32_", "u8", True, 100),
    State("Mute", 0x0007, "/player/mute", "bool_", "u8", True),
    State("DisplayBrightness", 0x001C, "/ui/displayBrightness", "i32_", "u8", True, 255),
    State("DeviceName", 0x0311, "/settings/deviceName", "string_", "str", True),
    State("Region", 0x0313, "/kestalPrime/region", "i32_", "u32", True, 2**31 - 1),
    State("ArcVolume", 0x031A, "/kestalPrime/arcVolume", "i32_", "u32", True, 1000),
    State("DacFilter", 0x031B, "/kestalPrime/dacFilter", "i32_", "u8", True, 255),
    State("HostName", 0x0303, "/kestalPrime/hostName", "string_", "str", False),
    State("DiracStimuliGain0", 0xA039, "/kestalPrime/dirac/stimuliGain/0", "i32_", "i32", False, 2**31 - 1),
]
BY_NUMBER = {state.number: state for state in STATES}
COMMAND = 0xA017  # a state that is handed over once
COMMAND_NODE = "VornHostLinkKestalPrimeBtCommandPath"
EVERYTHING = [state.number for state in STATES] + [COMMAND]


def state_name(number):
    return BY_NUMBER[number].name if number in BY_NUMBER else f"{number:#06x}"


class Module:
    """The module's inside, as far as the soak moves it."""

    def __init__(self, first_values):
        self.first_values = dict(first_values)
        self.values = dict(first_values)
        self.subscribed = set()
        self.command = None  # one that waits to be read
        self.kept = {state.number: {first_values[state.number]} for state in STATES if state.is_setting}

    def assign(self, number, value):
        """Returns whether that is a change."""
        is_change = self.values[number] != value
        self.values[number] = value
        if number in self.kept:
            self.kept[number].add(value)
        return is_change

    def on_wire(self, number):
        if number == COMMAND:
            return ("nil", None) if self.command is None else ("u8", self.command)
        if number not in BY_NUMBER:
            return ("nil", None)
        return BY_NUMBER[number].on_wire(self.values[number])

    def hand_over(self, number):
        value = self.on_wire(number)
        if number == COMMAND:
            self.command = None
        return value

    def settings(self):
        return {number: self.values[number] for number in self.kept}

    def note_saved(self):
        """All settings are known to be on the disk."""
        self.kept = {number: {value} for number, value in self.settings().items()}

    def copy(self):
        return copy.deepcopy(self)


class Conversation:
    """Judges all that the module sends: answers in the order of their requests, and for each state every change
    once and in order."""

    def __init__(self):
        self.answers = collections.deque()
        self.events = collections.defaultdict(collections.deque)
        self.tolerated = {}  # state: values that may come beside, while it is not known how far a killed side got
        self.counts = collections.Counter()
        self.system_ups = 0

    def take(self, text):
        identity, content = decode(text)
        if identity & ANSWER:
            self._take_answer(identity, content)
        elif identity == CHANGED:
            for number, *value in content:
                self._take_event(number, tuple(value))

    def _take_answer(self, identity, content):
        if not self.answers:
            raise Failure(f"an answer without a request: {identity:#06x} {content}")
        what, is_right, expected = self.answers.popleft()
        if not is_right(identity, content):
            raise Failure(f"wrong answer to '{what}'\n  expected: {expected()}\n"
                          f"  found:    {identity:#06x} {content}")
        self.counts["answers"] += 1

    def _take_event(self, number, value):
        if number == SYSTEM_UP:
            self.system_ups += 1
            expect("times that the module has said that it is up, at most", 1, self.system_ups)
            return
        awaited = self.events[number]
        if awaited and awaited[0] == value:
            awaited.popleft()
            self.counts["events"] += 1
        elif value not in self.tolerated.get(number, ()):
            raise Failure(f"an event of {state_name(number)} that is none of its next changes\n"
                          f"  expected: {list(awaited)[:5]}\n  found:    {value}")

    def expect_answer(self, what, identity, content):
        right = (identity | ANSWER, content)
        self.answers.append((what, lambda *found: found == right, lambda: f"{right[0]:#06x} {right[1]}"))

    def missing_events(self):
        return {state_name(number): list(values) for number, values in self.events.items() if values}

    def forget(self):
        """What is still awaited will not come: a session has ended."""
        self.answers.clear()
        self.events.clear()


class Histories:
    """The values that states take one after the other while several write, for reads that meet one of them."""

    def __init__(self, module):
        self._values = {number: [module.on_wire(number)] for number in BY_NUMBER}
        self._oldest = dict.fromkeys(BY_NUMBER, 0)

    def add(self, number, value):
        self._values[number].append(value)

    def newest(self, number):
        return len(self._values[number]) - 1

    def since(self, number, first):
        return self._values[number][max(first, self._oldest[number]):]

    def meet(self, number, value, first, last):
        """Whether a read may bring this value; later reads bring it or newer ones."""
        for index in range(max(first, self._oldest[number]), last + 1):
            if self._values[number][index] == value:
                self._oldest[number] = index
                return True
        return False
