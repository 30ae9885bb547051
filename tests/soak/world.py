"""The module with its files, how hosts reach it, and what must be true of it whenever nothing is under way."""

import collections
import json
import pathlib
import random
import shutil
import signal
import tempfile
import time

from model import STATES, Conversation, Module, state_name
from product import PATIENCE, Failure, Log, NodeApi, Program, expect, free_port, wait_until

OCCUPIED = "occupied by another host"
MOST_CLIENTS = 4  # of the tunnel at a time
WARM_UP_STEPS = 40  # of a program, until its memory counts as what it needs
MOST_GROWTH_KIB = 4096  # of a program's memory from then on, however long it lives


def draw_faults(chance):
    """Every fault, each more or less often."""
    faults = {"drop": 4e-5, "flip": 4e-5, "dup": 4e-5, "insert": 4e-5, "split": 0.2, "merge": 0.2}
    faults = {name: f"{chance.random() * most:.6f}" for name, most in faults.items()}
    faults["burst"] = chance.randint(1, 12)
    faults["delay"] = chance.choice([0, 0, 0, 2])
    faults["cut"] = chance.choice([2, 5, 20])
    faults[chance.choice(["cut.in", "cut.out"])] = chance.choice([3, 10])
    faults["outage"] = chance.choice([20, 50, 200])
    if chance.random() < 0.2:
        faults["rate"] = chance.choice([300000, 1000000])
    faults["seed"] = chance.randrange(1, 2**31)
    return "&".join(f"{name}={value}" for name, value in faults.items())


class Life:
    """What a process takes over its life: it must not grow once it is warm, and no descriptor may be left of what
    has gone. One that follows another of its kind has the very descriptors that the other had, and needs no more."""

    def __init__(self, program, before=None):
        self._program = program
        self._steps = 0
        self._warm_kib = before and before._warm_kib
        self._descriptors = before and before._descriptors
        self.growth_kib = 0

    def check(self):
        self._steps += 1
        if self._descriptors is None:
            self._descriptors = self._program.descriptors()
        wait_until(lambda: f"the descriptors of {self._program.arguments[1]} are these again\n"
                           f"  expected: {self._descriptors}\n  found:    {self._program.descriptors()}",
                   lambda: self._program.descriptors() == self._descriptors)
        if self._steps < WARM_UP_STEPS:
            return
        resident = self._program.resident_kib()
        self._warm_kib = self._warm_kib or resident
        self.growth_kib = max(self.growth_kib, resident - self._warm_kib)
        if self.growth_kib > MOST_GROWTH_KIB:
            raise Failure(f"memory of {self._program.arguments[1]} grew from {self._warm_kib} to {resident} KiB in "
                          f"{self._steps} steps")


class World:
    """The module with its files, and how hosts reach it."""

    def __init__(self, build, seed):
        self.hostlink = build / "bin" / "hostlink"
        self.chance = random.Random(seed)
        self.log = Log()
        self.tally = collections.Counter()
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="hostlink-soak."))
        self.settings_file = self.folder / "state" / "settings.json"
        self.received = self.folder / "received"
        self.received.mkdir()
        self.port = free_port()
        self.programs = []
        self.rss = []
        self.module = self.api = self.module_life = self.model = None
        self.conversation = Conversation()
        self.sessions = 0  # that this life of the module has had
        self.spares_module = True  # it lives long now, so that its memory is seen to grow if it does

    def _line(self):
        return f"unix:{self.folder}/link?{draw_faults(self.chance)}"

    def _start(self, *arguments):
        program = Program([self.hostlink, *arguments], self.log)
        self.programs.append(program)
        return program

    def start_module(self):
        self.module = self._start("module", "--link", self._line(), "--api", self.folder / "api", "--state-dir",
                                  self.folder / "state", "--tunnel-port", self.port, "--tunnel-connections", MOST_CLIENTS,
                                  "--log-level", "error")
        ready = wait_until("the module is ready", lambda: self.module.next_line() or not self.module.is_running())
        if not str(ready).startswith("ready link="):
            raise Failure(f"the module did not start: {ready}")
        self.api = NodeApi(str(self.folder / "api"), self.log)
        self.module_life = Life(self.module, self.module_life)
        self.sessions = 0
        self.conversation.system_ups = 0
        if self.model is None:
            self.model = Module(self.node_values())

    def node_values(self):
        return {state.number: self.api.get(state.path)[state.field] for state in STATES}

    def start_host(self, *arguments, is_ready):
        """A host; when the module still holds the one before for its own, again."""
        deadline = time.monotonic() + PATIENCE
        while True:
            host = self._start("host", *arguments, "--timeout", "20000", "--link", self._line())
            if wait_until("the host is in session", lambda: is_ready(host) or not host.is_running()) \
                    and host.is_running():
                self.sessions += 1
                return host
            self._end(host, 3)
            if not host.has_errors(OCCUPIED) or time.monotonic() > deadline:
                raise Failure(f"the host did not start: {list(host.errors_seen)}")

    def _end(self, program, status, number=None):
        found = program.end(number)
        self.programs.remove(program)
        expect(f"exit status of '{' '.join(program.arguments[1:3])}'", status, found)

    def end(self, program, number=None, status=0):
        """`status`: what it ends with when nobody kills it."""
        if number == signal.SIGKILL:
            self.tally["kills"] += 1
            status = -number
        self._end(program, status, number)

    def end_module(self, number):
        self.api.close()
        self.end(self.module, number)

    def saved_settings(self):
        """What is on the disk now; a file is there as a whole or not at all."""
        try:
            saved = json.loads(self.settings_file.read_text())
        except FileNotFoundError:
            return {}
        expect("version of the settings file", 1, saved.get("hostlinkSettings"))
        nodes = saved["nodes"]
        return {state.number: nodes[state.path][state.field] for state in STATES if state.path in nodes}

    def are_settings_saved(self):
        saved = self.saved_settings()
        return all(saved.get(number, self.model.first_values[number]) == value
                   for number, value in self.model.settings().items())

    def await_saved(self):
        wait_until("all settings are on the disk", self.are_settings_saved)
        self.model.note_saved()

    def restart_module(self, number, possible):
        """`possible`: the settings, each as a dictionary, of which one must have been saved by a clean end. A kill
        loses changes back to the last ones that were known to be on the disk, each of its own."""
        self.tally["restarts"] += 1
        self.end_module(number)
        saved = self.saved_settings()
        kept = {key: saved.get(key, first) for key, first in self.model.first_values.items()}
        settings = {key: kept[key] for key in self.model.kept}
        if number != signal.SIGKILL and settings not in possible:
            raise Failure(f"settings that a clean end left\n  expected: one of {possible}\n  found:    {settings}")
        for key, values in self.model.kept.items():
            if settings[key] not in values:
                raise Failure(f"setting {state_name(key)} that a kill left\n  expected: one of {values}\n"
                              f"  found:    {settings[key]!r}")
        self.start_module()
        expect("values of the nodes after a restart", kept, self.node_values())
        self.model = Module(self.model.first_values)
        self.model.values = kept
        self.model.note_saved()

    def check_quiet(self, *lives):
        """What must be true whenever nothing is under way."""
        self.saved_settings()
        for life in (self.module_life, *lives):
            life.check()
        self.rss.append(self.module.resident_kib())
        counters = self.api.link_counters()
        expect("messages of which parts did not fit together", 0, counters["messagesBroken"])
        expect("sessions of this life of the module", self.sessions, counters["sessions"])
        expect("values of the nodes", self.model.values, self.node_values())

    def write_some_nodes(self, most):
        """While a host is there that does not care."""
        for state in self.chance.choices(STATES, k=self.chance.randint(0, most)):
            value = state.draw(self.chance)
            self.model.assign(state.number, value)
            self.api.set(state.path, {state.field: value})
            self.tally["node changes"] += 1

    def close(self):
        for program in self.programs:
            program.kill_if_running()
        shutil.rmtree(self.folder, ignore_errors=True)
