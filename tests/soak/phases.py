"""What the soak consists of: one host is on the link at a time, for some steps, each of which ends with all checked."""

import os
import signal
import time

from model import BY_NUMBER
from product import PATIENCE, Failure, TunnelClient, TunnelProbe, expect, run_clients, wait_until
from talk import Attended, Batch
from world import MOST_CLIENTS, Life

TRANSFER, TRANSFER_STATUS = "VornHostLinkDataTransferPath", "VornHostLinkDataTransferStatusPath"


class AttendPhase:
    """A host that asks, sets and subscribes, while nodes change and either side is restarted."""

    def __init__(self, world):
        self._world = world
        self._chance = world.chance
        self._host = Attended(world)
        self._host.settle()

    def step(self):
        kinds = {self._talk: 160, self._restart_host: 4, self._kill_talking_host: 4, self._pause: 1,
                 self._await_saved: 5, self._show_stats: 2}
        if not self._world.spares_module:
            kinds.update({self._restart_module: 4, self._cut_off_module: 4})
        self._chance.choices(list(kinds), kinds.values())[0]()
        self._host.settle()
        self._world.check_quiet(self._host.life)

    def end(self):
        self._host.end(self._chance.choice([None, signal.SIGTERM, signal.SIGINT, signal.SIGKILL]))

    def _talk(self):
        Batch(self._world, self._host, is_ended_early=False).run()
        self._host.await_answers()

    def _await_saved(self):
        self._world.await_saved()

    def _show_stats(self):
        self._host.type("stats")

    def _pause(self):
        """A side that is stuck for longer than the other takes it for alive: the session goes on."""
        batch = Batch(self._world, self._host, is_ended_early=False)
        if self._chance.random() < 0.5:
            batch.run()
            self._host.pause(3.2)
        else:
            self._world.module.send_signal(signal.SIGSTOP)
            time.sleep(3.2)
            self._world.module.send_signal(signal.SIGCONT)
            batch.run()

    def _restart_module(self):
        number = self._chance.choice([signal.SIGTERM, signal.SIGINT, signal.SIGKILL])
        if number == signal.SIGKILL and self._chance.random() < 0.5:
            self._world.await_saved()
        self._meet_new_module(number, [self._world.model.settings()])

    def _cut_off_module(self):
        """In the middle of a talk."""
        number = self._chance.choice([signal.SIGTERM, signal.SIGKILL])
        answered = self._world.conversation.counts["answers"]
        batch = Batch(self._world, self._host, is_ended_early=True)
        batch.run()
        self._host.pump()
        answered = self._world.conversation.counts["answers"] - answered
        self._meet_new_module(number, [model.settings() for model in batch.models(answered)])

    def _meet_new_module(self, number, possible):
        self._host.allow_session()
        world = self._world
        world.module.send_signal(number)
        self._host.await_all_sent_or_refused()
        world.restart_module(number, possible)
        self._host.await_session()
        world.sessions += 1

    def _restart_host(self):
        """Subscriptions stay."""
        self._world.tally["restarts"] += 1
        self._host.end(self._chance.choice([None, signal.SIGTERM, signal.SIGKILL]))
        self._world.write_some_nodes(3)
        self._host = Attended(self._world)

    def _kill_talking_host(self):
        """The module has handled the requests up to some one, in their order."""
        world, conversation = self._world, self._world.conversation
        world.tally["restarts"] += 1
        answered = conversation.counts["answers"]
        batch = Batch(world, self._host, is_ended_early=True)
        batch.run()
        self._host.end(signal.SIGKILL)
        answered = conversation.counts["answers"] - answered
        possible = list(batch.models(answered))
        conversation.forget()
        conversation.tolerated = {number: {model.on_wire(number) for model in possible} for number in BY_NUMBER}
        self._host = Attended(world)
        self._host.await_handled()
        values, subscribed = world.node_values(), self._host.unsubscribe_all()
        conversation.tolerated = {}
        kept = world.model.kept
        for model in possible:
            if model.values == values and model.subscribed == subscribed:
                break
        else:
            raise Failure("what a host was killed amid is not what the module would have of its first requests\n"
                          f"  expected: one of {[(m.values, m.subscribed) for m in possible]}\n"
                          f"  found:    {values} {subscribed}")
        model.subscribed = set()
        model.kept = kept
        world.model = model


class ReceivePhase:
    """A host that takes files, while nodes change and either side is killed amid one."""

    def __init__(self, world):
        self._world = world
        self._chance = world.chance
        self._files = 0
        self._start_host()

    def _start_host(self):
        self._host = self._world.start_host("receive", self._world.received,
                                            is_ready=lambda host: host.has_errors("ready for files"))
        self._life = Life(self._host)
        self._status_at_end = 0

    def step(self):
        kinds = {self._push: 8, self._kill_host: 1, self._kill_module: not self._world.spares_module}
        self._chance.choices(list(kinds), kinds.values())[0]()
        self._world.check_quiet(self._life)

    def end(self):
        number = self._chance.choice([signal.SIGTERM, signal.SIGKILL])
        self._world.end(self._host, number, self._status_at_end)

    def _begin(self, size, chunk):
        self._files += 1
        file = self._world.folder / f"file-{self._files}.bin"
        file.write_bytes(self._chance.randbytes(size))
        self._world.api.invoke(TRANSFER, {"action": 0, "fileName": str(file), "chunkSize": chunk, "timeout": 20000,
                                          "crc": self._chance.random() < 0.5})
        return file

    def _status(self):
        return self._world.api.get(TRANSFER_STATUS)

    def _push(self):
        chunk = self._chance.choice([128, 500, 1000, 4096, 32768])
        size = self._chance.randint(0, min(100 * chunk, 400000))
        file = self._begin(size, chunk)
        self._world.write_some_nodes(5)
        wait_until(f"the transfer of {size} bytes in chunks of {chunk} ends", lambda: not self._status()["active"])
        expect("error of the transfer", None, self._status().get("error"))
        self._take(file, size, is_sent=size > chunk)
        self._world.tally["pushes"] += 1

    def _take(self, file, size, is_sent):
        """A file of at most one chunk completes without being sent."""
        if is_sent:
            line = wait_until(f"the host says that it has {file.name}", self._host.next_line)
            expect("what the host says of a file", f"{file.name}\t{size}", line)
            if (self._world.received / file.name).read_bytes() != file.read_bytes():
                raise Failure(f"{file.name} of {size} bytes has arrived with another content")
            (self._world.received / file.name).unlink()
        file.unlink()
        expect("files beside those received", [], os.listdir(self._world.received))

    def _begin_long(self):
        """Returns when some of it has been sent."""
        file = self._begin(self._chance.randint(200000, 2000000), self._chance.choice([500, 4096]))
        chunks = self._chance.randint(1, 30)

        def has_sent_some():
            status = self._status()  # which tells of no chunk until the first is sent
            return status.get("chunksSent", 0) >= chunks or not status["active"]

        wait_until("some chunks are sent", has_sent_some)
        return file

    def _expect_whole_or_none(self, file):
        """Under its final name; what was begun may lie beside after a kill, until the next host begins."""
        found = self._world.received / file.name
        if found.exists():
            if found.read_bytes() != file.read_bytes():
                raise Failure(f"a half file under the final name {file.name}")
            found.unlink()
        file.unlink()
        for name in os.listdir(self._world.received):
            if not (name.startswith(".hostlink-") and name.endswith(".part")):
                raise Failure(f"a file of an unexpected name: {name}")

    def _expect_nothing_left(self):
        wait_until(lambda: f"nothing is left of a file that was begun: {os.listdir(self._world.received)}",
                   lambda: not os.listdir(self._world.received))

    def _kill_host(self):
        self._world.tally["restarts"] += 1
        file = self._begin_long()
        self._world.end(self._host, signal.SIGKILL)
        self._expect_whole_or_none(file)
        self._world.api.invoke(TRANSFER, {"action": 1})
        expect("activity of a transfer that was stopped", False, self._status()["active"])
        self._start_host()
        self._expect_nothing_left()

    def _kill_module(self):
        world = self._world
        file = self._begin_long()
        world.restart_module(signal.SIGKILL, [])
        # This host stays; the link's own count says when it is back.
        wait_until("the host is in session again", lambda: world.api.link_counters()["sessions"] == 1)
        world.sessions = 1
        wait_until("the module has the host's answer to its first messages", self._is_met)
        if not self._host.next_line():
            self._status_at_end = 1  # it says that a file was not received
        self._expect_whole_or_none(file)
        self._expect_nothing_left()

    def _is_met(self):
        counters = self._world.api.link_counters()
        return counters["stateQueued"] == 0 and counters["framesUnacknowledged"] == 0 \
            and counters["messagesReceived"] >= 3


class TunnelPhase:
    """A host that echoes what clients of the module's port send, while nodes change and either side is killed."""

    def __init__(self, world):
        self._world = world
        self._chance = world.chance
        self._start_host()

    def _start_host(self):
        self._host = self._world.start_host("tunnel", "--echo",
                                            is_ready=lambda host: host.has_errors("ready for clients"))
        self._life = Life(self._host)

    def step(self):
        kinds = {self._echo: 8, self._kill_host: 1, self._kill_module: not self._world.spares_module}
        self._chance.choices(list(kinds), kinds.values())[0]()
        self._world.check_quiet(self._life)

    def end(self):
        self._world.end(self._host, self._chance.choice([signal.SIGTERM, signal.SIGKILL]))

    def _connect(self, most):
        return [TunnelClient(self._world.port, self._chance.randrange(2**31), self._chance.randint(1, most))
                for _ in range(self._chance.randint(1, MOST_CLIENTS))]

    def _finish(self, clients):
        for client in clients:
            self._world.tally["bytes tunnelled"] += client.received
            client.close()

    def _echo(self):
        """Some clients go in the middle; the others must not feel it."""
        clients = self._connect(150000)
        leaving = clients[:self._chance.randint(0, len(clients) - 1)]
        staying = clients[len(leaving):]
        for client in list(leaving):
            run_clients(clients, lambda: client.received > 0)
            self._finish([client])
            clients.remove(client)
            self._world.write_some_nodes(3)
        run_clients(staying, lambda: False)
        if any(client.is_cut for client in staying):
            raise Failure("a client of the tunnel was cut off, though all sides live")
        self._finish(staying)
        if leaving:
            self._flush()

    def _flush(self):
        """A number is given anew at once, and the next client may get what the host had sent to the one before. So
        each number has a client here that has seen all of that."""
        deadline = time.monotonic() + 2 * PATIENCE
        while True:
            probes = [TunnelProbe(self._world.port, self._chance.randrange(2**31)) for _ in range(MOST_CLIENTS)]
            run_clients(probes, lambda: any(probe.is_cut for probe in probes))
            is_through = not any(probe.is_cut for probe in probes)  # otherwise a number was still taken
            for probe in probes:
                probe.close()
            if is_through:
                return
            if time.monotonic() > deadline:
                raise Failure("not all numbers of the tunnel's clients are free again")

    def _begin_long(self):
        clients = self._connect(3000000)
        enough = self._chance.randint(1, 20000)
        run_clients(clients, lambda: sum(client.received for client in clients) > enough)
        return clients

    def _kill_host(self):
        """What has come back is right, and no more is said: the new host knows nothing of the old streams."""
        self._world.tally["restarts"] += 1
        clients = self._begin_long()
        self._world.end(self._host, signal.SIGKILL)
        for client in clients:
            client.read()
        self._finish(clients)
        self._start_host()
        self._flush()

    def _kill_module(self):
        world = self._world
        clients = self._begin_long()
        world.restart_module(signal.SIGKILL, [])
        run_clients(clients, lambda: all(client.is_cut for client in clients))
        self._finish(clients)
        wait_until("the host is in session again", lambda: world.api.link_counters()["sessions"] == 1)
        world.sessions = 1
        self._flush()
