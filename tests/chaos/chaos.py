#!/usr/bin/env python3
"""Computers with one account at a real place, the real tools, and everything that can go wrong between them: random edits,
syncs in any order and at once, tools and servers killed, connections refused and cut, the place put back. When the faults end
and everybody has synced, all computers hold one tree, in which no edit is lost, doubled or undone, and another round of
syncs writes nothing.

usage: chaos.py [--place KIND] [--seed N] [--rounds N] [--only TURN] [--verbose] PROGRAMS LOG_LIBRARY CLOCK_LIBRARY

PROGRAMS is the directory of corvanetool, loomerctl and corvane-hub; the libraries are for LD_PRELOAD. A round is a few turns, each with its fault, and a
settlement. The seed tells what is done; when that meets what else runs on the machine is chance, so a failure may take more than one run
to come again.
"""

import argparse
import collections
import os
import plistlib
import random
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
import traceback

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "crash"))

import histories  # noqa: E402
import places  # noqa: E402
import power  # noqa: E402
import proxy  # noqa: E402
from homes import FIRST, STALE_AFTER_SECONDS, Failure, Home, Tools, preloadable, root_with, taken_lines, write  # noqa: E402

SESSION_SECONDS = 900
SETTLEMENT_ROUNDS = 20
TRIES = 3
# What a session may say in the system log while there are faults.
SAYS = ("Bookmarks were synced on this computer alone, not with the online service: ",
        "The online service was put back to an earlier state: ")
NO_ROOM = ("There is no room at the online service: ", "The account at the online service is full: ")
TAKEN_OUT = SAYS[0] + "This computer was taken out of the account"
INVITE_ANEW = "Sync on a computer that belongs to the account for longer, and have it invite this one anew"
DAY_SECONDS = 87_000  # and a little
# Messages that announce what happens after some time.
WAITS = {"for ten minutes": 660, "for a day": DAY_SECONDS}
WEEK_SECONDS = 7 * 86_400
YEAR_SECONDS = 365 * 86_400


class Computer(Home):
    """A home whose runs write to a system log of their own, and go by a clock that is `shift` seconds off."""

    def __init__(self, tools, path, libraries):
        super().__init__(tools, path)
        self.name = os.path.basename(path)
        self.log = path + ".log"
        self.environment.update(LD_PRELOAD=":".join(libraries), CORVANE_TEST_SYSLOG=self.log)
        self.advance(0)

    def advance(self, seconds):
        self.shift = int(self.environment.get("CORVANE_TEST_CLOCK_SHIFT", 0)) + seconds
        self.environment["CORVANE_TEST_CLOCK_SHIFT"] = str(self.shift)

    def age_lock(self):
        """By this computer's clock."""
        if super().age_lock():
            aged = time.time() + self.shift - STALE_AFTER_SECONDS - 1
            os.utime(self.lock(), (aged, aged))

    def lines(self):
        """What was logged since this was asked last."""
        return taken_lines(self.log)

    def must(self, program, *arguments, given=""):
        """On a slow machine a place may take longer than the programs wait."""
        for _ in range(TRIES):
            done = subprocess.run([program, *arguments], env=self.environment, input=given, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE, text=True, timeout=SESSION_SECONDS)
            if done.returncode == 0:
                return done.stdout
        raise Failure(f"{self.name}: {arguments} ended with {done.returncode}: {done.stderr} {self.lines()}")

    def must_control(self, *arguments, given=""):
        return self.must(self.tools.control, *arguments, given=given)

    def bytes(self):
        with open(self.bookmarks(FIRST), "rb") as file:
            return file.read()

    def state_name(self):
        """Revision and push of the state of the service that it last saw."""
        with tempfile.TemporaryDirectory() as directory:  # looking at the store itself would change its files
            copy = os.path.join(directory, "Truth.db")
            for suffix in ("", "-wal"):
                if os.path.exists(self.store() + suffix):
                    shutil.copy(self.store() + suffix, copy + suffix)
            store = sqlite3.connect(copy)
            try:
                found = store.execute("SELECT value FROM client_values WHERE key = 'seen'").fetchone()
            except sqlite3.OperationalError:
                found = None  # a session was killed that was to make the store
            store.close()
        if found is None:
            return "no state"
        seen = plistlib.loads(found[0])
        return f"state {seen['revision']} {seen.get('mark', '')[:8]}"


class Chaos:
    """One run: the place, the computers, and what must come of the edits."""

    def __init__(self, options, directory):
        self.options = options
        self.directory = directory
        self.draw = random.Random(options.seed)
        self.counts = collections.Counter()
        self.histories = histories.Histories(random.Random(self.draw.random()))
        os.mkdir(os.path.join(directory, "place"))
        os.mkdir(os.path.join(directory, "backups"))
        os.chmod(directory, 0o755)  # a server may run as somebody else
        self.place = places.KINDS[options.place](os.path.join(directory, "place"), options.programs,
                                                 random.Random(self.draw.random()))
        self.computers = []
        self.backups = []
        self.torn = set()  # those made while others wrote
        self.deck = []
        self.made = 0
        self.waited = 0
        self.has_gaps = False
        self.session_seconds = 0
        self.story = []

    def end(self):
        self.place.end()

    # What is told of a failing run.

    def tell(self, text):
        self.story.append(text)
        if self.options.verbose:
            print(text, flush=True)

    def tell_all(self, failure):
        """What it takes to explain a failure stands beside the homes, the place and the backups, which are left as they are:
        the story, and what each computer's sessions changed."""
        path = os.path.join(self.directory, "story")
        with open(path, "w", encoding="utf-8") as file:
            file.write("\n".join([*self.story, failure]))
        for computer in self.computers:
            for log in ("sessions", "changes"):
                with open(f"{computer.path}.{log}", "w", encoding="utf-8") as file:
                    file.write(computer.control(log)[1])
        return path

    # Computers.

    def new_computer(self, children=()):
        path = os.path.join(self.directory, f"computer{self.made}")
        self.made += 1
        computer = Computer(Tools(self.options.programs), path, self.options.libraries).make()
        computer.advance(self.waited)
        write(computer.bookmarks(FIRST), root_with(list(children)))
        return computer

    def begin(self):
        first = self.new_computer(self.histories.first_children())
        first.must_control("account", "set", self.place.address, given=self.place.secrets(first.name))
        self.place.interpose()
        first.must(first.tools.tool, "--register")
        self.computers.append(first)
        self.require_said(first, first.sync(FIRST), SAYS)
        for _ in range(self.draw.randint(2, 4)):
            self.join()
        self.settle()

    def join(self):
        computer = self.new_computer()
        self.invite(computer)
        self.computers.append(computer)

    def invite(self, computer):
        """By one that has synced after all others, who hand it the newest key where the place has forgotten that: an invitation
        of before a change of the key lets nobody in."""
        others = [each for each in self.computers if each is not computer]
        self.draw.shuffle(others)
        host = others[-1]
        for each in others:
            self.settle_one(each)
        invitation = host.must_control("account", "invite")
        computer.must_control("account", "join", given=invitation + self.place.secrets(computer.name))
        computer.must(computer.tools.tool, "--register")
        self.tell(f"{computer.name} joins, invited by {host.name}")

    def heal(self, computer, lines):
        """Does what a message asks for."""
        if any(INVITE_ANEW in line for line in lines):
            computer.must_control("account", "remove")
            self.invite(computer)

    def wait(self, seconds):
        self.tell(f"{seconds} seconds go by")
        self.waited += seconds
        for computer in self.computers:
            computer.advance(seconds)

    # Steps.

    def edit(self):
        """Some of the users edit."""
        for computer in self.computers:
            for _ in range(self.draw.choice((0, 0, 1, 2, 4))):
                root = computer.root(FIRST)
                if self.draw.random() < 0.15 and computer is self.computers[0]:
                    done = self.histories.reorder(root)
                else:
                    done = self.histories.edit(computer.name, root)
                write(computer.bookmarks(FIRST), root)
                self.tell(f"{computer.name}: {done}")
                self.counts["edits"] += 1

    def some(self):
        return self.draw.sample(self.computers, self.draw.randint(1, len(self.computers)))

    def sync_all(self, computers, says=SAYS):
        """In turn or at once."""
        if self.draw.random() < 0.4:
            for computer in computers:
                self.require_said(computer, computer.sync(FIRST), says)
        else:
            self.await_all(self.start_all(computers), says)

    def moment(self):
        """Seconds, within which sessions that begin at once are mostly over."""
        return self.draw.uniform(0, self.session_seconds * len(self.computers))

    def start_all(self, computers):
        return [(computer, computer.start(FIRST)) for computer in computers]

    def await_all(self, started, says=SAYS):
        for computer, process in started:
            output, _ = process.communicate(timeout=SESSION_SECONDS)
            self.require_said(computer, (process.returncode, output), says)

    def require_said(self, computer, ended, says, killed=False):
        """A session ends well, prints nothing, and logs nothing but what it should."""
        status, output = ended
        lines = computer.lines()
        self.histories.session_ended(computer.name, computer.root(FIRST), status == -signal.SIGKILL)
        self.counts["sessions"] += 1
        self.counts["sessions that said something"] += bool(lines)
        self.tell(f"{computer.name} synced: {status} {output.strip()} {lines}, {computer.state_name()}")
        if not (status == 0 or killed and status == -signal.SIGKILL) or output:
            raise Failure(f"{computer.name}: a session ended with {status}: {output.strip()} {lines}")
        for line in lines:
            if not line.startswith(tuple(says)):
                raise Failure(f"{computer.name} said: {line}")
        return lines

    def require_told(self, computer, text):
        """Soon, since it may not reach the place at once."""
        for _ in range(TRIES):
            lines = self.require_said(computer, computer.sync(FIRST), SAYS)
            if any(text in line for line in lines):
                return
        raise Failure(f'{computer.name} does not say "{text}" but {lines}')

    # Turns: edits, and syncs under a fault.

    def turn_plain(self):
        for _ in range(2):
            self.edit()
            self.sync_all(self.some())

    def turn_tools_killed(self):
        """Each at a moment of its own."""
        self.edit()
        for _ in range(2):
            started = self.start_all(self.computers)
            ends = {process.pid: time.monotonic() + self.moment() for _, process in started}
            for computer, process in sorted(started, key=lambda each: ends[each[1].pid]):
                time.sleep(max(0, ends[process.pid] - time.monotonic()))
                process.kill()
            for computer, process in started:
                output, _ = process.communicate(timeout=SESSION_SECONDS)
                self.counts["tools killed"] += process.returncode == -signal.SIGKILL
                self.require_said(computer, (process.returncode, output), SAYS, killed=True)
                computer.age_lock()

    def turn_tool_killed_at_a_call(self):
        calls = ("fdatasync", "fsync", "rename", "sendto" if self.place.proxy else "link,linkat")
        self.edit()
        for computer in self.some():
            call = self.draw.choice(calls)
            number = self.draw.randint(1, 8)
            ended = computer.sync(FIRST, ("strace", "-f", "-qq", "-o", "/dev/null", "-e", f"trace={call}",
                                          "-e", f"inject={call}:signal=SIGKILL:when={number}"))
            self.counts["tools killed at a call"] += ended[0] == -signal.SIGKILL
            self.tell(f"{computer.name}: kill at {call} {number}")
            self.require_said(computer, ended, SAYS, killed=True)
            computer.age_lock()

    def turn_server_killed(self):
        self.edit()
        started = self.start_all(self.computers)
        time.sleep(self.moment())
        self.place.kill()
        self.tell("the server is killed")
        self.counts["servers killed"] += 1
        if self.draw.random() < 0.5:
            time.sleep(self.draw.uniform(0, 0.5))
            self.place.start()
            self.await_all(started)
        else:
            self.await_all(started)
            self.place.start()

    def turn_refused(self):
        self.edit()
        self.place.proxy.refuse()
        self.tell("connections are refused")
        self.counts["times of refusal"] += 1
        started = self.start_all(self.some())
        if self.draw.random() < 0.5:
            time.sleep(self.draw.uniform(0, 0.5))
            self.place.proxy.listen()
            self.await_all(started)
        else:
            self.await_all(started)
            self.place.proxy.listen()

    def turn_cut(self):
        """Single exchanges are cut, or all from some moment on."""
        self.edit()
        draw, cuts = random.Random(self.draw.random()), []

        def plan():
            if not cuts:
                cuts.extend(draw.sample(proxy.CUTS, len(proxy.CUTS)))
            return cuts.pop() if draw.random() < share else None

        share = self.draw.choice((0.1, 0.3, 1))
        self.place.proxy.plan = plan
        self.tell(f"exchanges are cut: {share}")
        self.sync_all(self.some())
        self.place.proxy.plan = None

    def turn_put_back(self):
        """Edits before, in the part that is lost, and after."""
        self.edit()
        self.sync_all(self.some())
        if self.draw.random() < 0.5 or not self.backups:
            path = self.back_up() if self.draw.random() < 0.7 else self.back_up_while_syncing()
            self.backups.append(path)
            for _ in range(self.draw.randint(1, 3)):
                self.edit()
                self.sync_all(self.some())
        else:
            path = self.draw.choice(self.backups)
        self.place.put_back(path)
        self.has_gaps = self.has_gaps or path in self.torn
        self.tell(f"put back to {os.path.basename(path)}")
        self.counts["times put back"] += 1
        self.edit()
        self.sync_all(self.some())

    def back_up(self):
        path = os.path.join(self.directory, "backups", str(self.counts["backups"]))
        self.counts["backups"] += 1
        self.place.back_up(path)
        self.tell(f"backup {self.counts['backups'] - 1}")
        return path

    def back_up_while_syncing(self):
        """It may lack what came before something that it has."""
        started = self.start_all(self.some())
        time.sleep(self.moment())
        path = self.back_up()
        self.torn.add(path)
        self.await_all(started)
        self.counts["backups while syncing"] += 1
        return path

    def turn_clock_off(self):
        """From now on; or right again."""
        computer = self.draw.choice(self.computers)
        off = self.waited - computer.shift or self.draw.choice((-1, 1)) * YEAR_SECONDS
        computer.advance(off)
        computer.age_lock()  # of a killed run, which by a clock put back is yet to come
        self.tell(f"{computer.name}'s clock moves by {off}")
        self.counts["clocks moved"] += 1
        self.turn_plain()

    def turn_power_cut(self):
        """What is not durable is gone."""
        if not self.place.is_durable:
            return self.turn_power_cut_of_the_careless()
        self.edit()
        self.sync_all(self.some())
        before = self.back_up()
        self.edit()
        trace, number = os.path.join(self.directory, "trace"), self.draw.randint(1, 6)
        self.tell(f"the power is cut at fsync {number}")
        if self.place.proxy:
            self.place.kill()
            self.place.start(power.tracing(trace, number))
            self.sync_all(self.some())
            self.place.kill()
        else:
            computer = self.draw.choice(self.computers)
            self.require_said(computer, computer.sync(FIRST, power.tracing(trace, number)), SAYS, killed=True)
            computer.age_lock()
        self.lose_what_is_not_durable(power.unsynced(trace, self.place.data), before)
        if self.place.proxy:
            self.place.start()
        self.counts["power cuts"] += 1
        self.sync_all(self.some())

    def lose_what_is_not_durable(self, made, before):
        """The cut may have come before or after these names were made, and the removal of others."""
        for path in reversed(made):
            if self.draw.random() < 0.5:
                self.tell(f"gone: {path}")
                shutil.rmtree(path) if os.path.isdir(path) else os.remove(path)
                self.counts["objects gone after a power cut"] += 1
        for at, _, names in os.walk(before):
            for name in names:
                path = os.path.join(self.place.data, os.path.relpath(os.path.join(at, name), before))
                if not os.path.exists(path) and os.path.isdir(os.path.dirname(path)) and self.draw.random() < 0.5:
                    self.tell(f"there again: {path}")
                    shutil.copy2(os.path.join(at, name), path)
                    self.counts["objects there again after a power cut"] += 1
        self.place.forget_what_was_counted()

    def turn_power_cut_of_the_careless(self):
        """What the server has not made durable is gone, or empty: nothing, with these servers."""
        self.edit()
        self.sync_all(self.some())
        before = set(self.place.objects())
        for _ in range(2):
            self.edit()
            self.sync_all(self.some())
        self.place.kill()
        newest = sorted(set(self.place.objects()) - before, key=lambda path: os.stat(path).st_mtime_ns)
        for path in newest[self.draw.randint(0, len(newest)):] if self.draw.random() < 0.5 else newest:
            loss = self.draw.choice(("gone", "empty", "kept"))
            self.tell(f"{loss}: {path}")
            self.place.lose(path, loss)
            self.counts[f"objects {loss} after a power cut"] += 1
        self.has_gaps = True
        self.place.start()
        self.counts["power cuts"] += 1
        self.edit()
        self.sync_all(self.some())

    def turn_computer_taken_out(self):
        """While the others sync and edit. What it gave before counts; another computer comes instead. The place may be put back
        to before that, and is told again."""
        if len(self.computers) < 3:
            return self.turn_plain()
        self.gather()
        out = self.draw.choice(self.computers[1:])
        host = self.draw.choice([each for each in self.computers if each is not out])
        before = self.back_up() if self.draw.random() < 0.5 else None
        self.computers.remove(out)
        self.edit()
        started = self.start_all([*self.computers, out])
        time.sleep(self.moment())
        self.change_key(host, "remove-computer", self.identifier(out))
        self.await_all(started, (*SAYS, TAKEN_OUT))
        self.histories.forget(out.name)
        if self.draw.random() < 0.5:
            self.sync_all(self.some())
        if before:
            self.place.put_back(before)
            self.tell(f"put back to {os.path.basename(before)}, before the change of the key")
            self.counts["times put back to before a computer was taken out"] += 1
            self.edit()
            self.sync_all([*self.some(), out], (*SAYS, TAKEN_OUT))
            self.settle_one(host)
        self.require_told(out, TAKEN_OUT)
        self.counts["computers taken out"] += 1
        self.join()

    def turn_key_changed(self):
        """Some get it at once, and others when they sync; before that, the place may be put back."""
        self.gather()
        host = self.draw.choice(self.computers)
        self.edit()
        started = self.start_all(self.draw.sample([each for each in self.computers if each is not host], 1))
        time.sleep(self.moment())
        self.change_key(host, "new-key")
        self.await_all(started)
        self.counts["keys changed"] += 1
        self.sync_all(self.some())

    def gather(self):
        """All have the newest key, and have left the cards by which they are handed the next one: one that the place has
        lost is left again within a week."""
        self.wait(WEEK_SECONDS)
        self.settle()

    def identifier(self, computer):
        return next(line.split()[-1] for line in computer.control("account", "show")[1].splitlines()
                    if line.startswith("Computer"))

    def change_key(self, host, *command):
        """Others may be faster, and whoever has just come may not know the newest key: the command says so."""
        for _ in range(SETTLEMENT_ROUNDS):
            status, output = host.control("account", *command)
            host.lines()
            self.tell(f"{host.name}: {command}: {status} {output.strip()}")
            if status == 0:
                return
            self.settle_one(host)
        raise Failure(f"{host.name} cannot do {command}: {output}")

    def settle_one(self, computer):
        """Until all that it has is given."""
        for _ in range(SETTLEMENT_ROUNDS):
            lines = self.require_said(computer, computer.sync(FIRST), SAYS)
            if not lines:
                return
            self.heal(computer, lines)
            self.wait_as_told(lines)
        raise Failure(f"{computer.name} does not come to rest: {lines}")

    def turn_quota(self):
        """The account has room for little more than it holds, or none; later it has enough."""
        self.edit()
        quota = sum(os.stat(path).st_size for path in self.place.objects()) + self.draw.choice((0, 4096, 16_384))
        self.place.set_quota(str(quota))
        self.tell(f"the quota is {quota}")
        for _ in range(2):
            self.edit()
            for computer in self.some():
                lines = self.require_said(computer, computer.sync(FIRST), (*SAYS, *NO_ROOM))
                self.counts["quotas reached"] += any(line.startswith(NO_ROOM) for line in lines)
        self.place.set_quota("1 GiB")
        self.tell("the quota is 1 GiB")

    def turn_disk_full(self):
        """For some of them, as it is where quotas are the users'."""
        self.edit()
        error = self.draw.choice(("ENOSPC", "EDQUOT", "EIO"))
        for computer in self.some():
            self.tell(f"{computer.name} meets {error}")
            lines = self.require_said(computer, computer.sync(FIRST, (
                "strace", "-f", "-qq", "-o", "/dev/null", "-e", "trace=linkat", "-e", f"inject=linkat:error={error}")),
                                      (*SAYS, *NO_ROOM))
            self.counts[f"{error} met"] += bool(lines)

    def turn_token_revoked(self):
        """That computer says so, the others go on; a new token heals it."""
        computer = self.draw.choice(self.computers)
        self.place.revoke(computer.name)
        self.tell(f"{computer.name}'s token is revoked")
        self.edit()
        for each in self.computers:
            self.require_said(each, each.sync(FIRST), SAYS)
        self.require_told(computer, "the token has been revoked")
        computer.must_control("account", "set", self.place.address, given=self.place.secrets(computer.name))
        self.tell(f"{computer.name} has a new token")
        self.counts["tokens revoked"] += 1

    def turn_aged(self):
        """All that is there becomes old enough to be collected."""
        self.place.age(40 * 86_400)
        self.counts["times that objects aged"] += 1
        self.turn_plain()

    def turn_joined(self):
        """Another computer comes, while the others sync."""
        if len(self.computers) == 5:
            return self.turn_plain()
        self.edit()
        self.join()
        self.sync_all(self.computers)

    def turns(self):
        turns = [self.turn_plain, self.turn_tools_killed, self.turn_tools_killed, self.turn_tool_killed_at_a_call,
                 self.turn_server_killed, self.turn_put_back, self.turn_put_back, self.turn_joined, self.turn_clock_off,
                 self.turn_computer_taken_out, self.turn_key_changed]
        if self.place.proxy:
            turns += [self.turn_refused, self.turn_cut, self.turn_cut]
        else:
            turns += [self.turn_disk_full]
        if self.place.has_files:
            turns += [self.turn_aged, self.turn_power_cut]
        if self.place.has_tokens:
            turns += [self.turn_quota, self.turn_token_revoked]
        return [turn for turn in turns if self.options.only in (None, turn.__name__.partition("_")[2])]

    # Settlements.

    def round(self):
        for _ in range(self.draw.randint(2, 4)):
            if not self.deck:
                self.deck = self.turns()
                self.draw.shuffle(self.deck)
            turn = self.deck.pop()
            self.tell(f"== {turn.__name__}")
            turn()
        self.settle()
        self.counts["rounds"] += 1

    def wait_as_told(self, lines):
        told = [seconds for text, seconds in WAITS.items() if any(text in line for line in lines)]
        if told:
            self.wait(max(told))

    def state(self):
        return self.place.fingerprint(), [computer.bytes() for computer in self.computers]

    def settle(self):
        """Without faults, all sync until nothing moves any more."""
        self.tell("== settlement")
        if self.place.proxy:
            self.place.proxy.await_late()
        before = None
        for _ in range(SETTLEMENT_ROUNDS):
            said = []
            for computer in self.draw.sample(self.computers, len(self.computers)):
                began = time.monotonic()
                lines = self.require_said(computer, computer.sync(FIRST), SAYS)
                self.session_seconds = time.monotonic() - began
                self.heal(computer, lines)
                said += lines
            after = self.state()
            if after == before and not said and not self.has_gaps:
                return self.require_kept()
            if after == before and not said:
                # What lies before the newest object is looked at once a day.
                self.has_gaps = False
                self.wait(DAY_SECONDS)
            before = after
            self.wait_as_told(said)
        raise Failure(f"the computers do not come to rest: {said}")

    def require_kept(self):
        first = self.computers[0]
        for computer in self.computers:
            if computer.shared_tree(FIRST) != first.shared_tree(FIRST):
                raise Failure(f"{computer.name} and {first.name} differ:\n{computer.shared_tree(FIRST)}\n"
                              f"{first.shared_tree(FIRST)}")
            computer.must_be_sound()
        self.histories.require_kept(first.root(FIRST))
        self.histories.settle(first.root(FIRST))


def run(options):
    directory = tempfile.mkdtemp(prefix="corvane-chaos-")
    chaos = Chaos(options, directory)
    try:
        chaos.begin()
        for number in range(options.rounds):
            chaos.tell(f"==== round {number}")
            chaos.round()
    except Exception:
        failure = traceback.format_exc()
        print(failure)
        print(f"seed {options.seed} fails at {options.place}; what happened is told in {chaos.tell_all(failure)}, and the homes, "
              f"the place and its backups are beside it. Again:\n"
              f"{sys.argv[0]} --place {options.place} --seed {options.seed} --rounds {options.rounds} "
              f"{' '.join(sys.argv[-3:])}")
        return 1
    finally:
        chaos.end()
    shutil.rmtree(directory)
    told = dict(chaos.counts)
    if chaos.place.proxy:
        told["exchanges cut"] = chaos.place.proxy.cuts
    print(f"{options.place}, seed {options.seed}: {told}")
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--place", choices=places.KINDS, default="directory")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 32))
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--only", help="turns of this name alone")
    parser.add_argument("--verbose", action="store_true")
    parser.add_argument("programs", type=os.path.abspath)
    parser.add_argument("libraries", type=preloadable, nargs=2)
    sys.exit(run(parser.parse_args()))


if __name__ == "__main__":
    main()
