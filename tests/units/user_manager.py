"""A real `systemd --user` and its user, in namespaces of their own, with which ends what it starts and what that writes."""

import os
import pathlib
import shutil
import subprocess
import sys
import time

USER, GROUP = "nobody", "nogroup"  # a user who is there everywhere and whom nothing belongs to
UID = 65534
HOME = pathlib.Path("/home/ada")
RUNTIME = pathlib.Path(f"/run/user/{UID}")
CGROUP = pathlib.Path("/sys/fs/cgroup/corvane-units-test")


def enter_namespaces():
    """Starts this script anew in mount, process and control-group namespaces, with nothing mounted that matters to others."""
    if sys.argv[1] == "--inside":
        del sys.argv[1]
        return
    os.execvp("unshare", ["unshare", "--mount", "--pid", "--cgroup", "--fork", "--kill-child", "--mount-proc", "--propagation",
                          "private", sys.executable, "-B", sys.argv[0], "--inside", *sys.argv[1:]])


def sh(*command, **options):
    """What the command printed; fails with all that it said."""
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=120, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))}: exit status {done.returncode}\n{done.stdout}")
    return done.stdout


def eventually(question, what):
    """Waits until the question is answered with something, and answers it."""
    end = time.monotonic() + 120
    while not (answer := question()):
        if time.monotonic() > end:
            raise RuntimeError(f"{what} does not happen")
        time.sleep(0.2)
    return answer


class UserManager:
    """The manager, started with an empty home; `before` is put in front of its command line."""

    def __init__(self, programs, before=()):
        for where in ("/run", "/home"):
            sh("mount", "-t", "tmpfs", "-o", "mode=755", "none", where)
        sh("mount", "-t", "cgroup2", "none", "/sys/fs/cgroup")
        # What systemd has where it has started the computer.
        for each in ("/run/systemd/system", "/run/systemd/unit-root"):
            os.makedirs(each)
        for each in (HOME, RUNTIME, CGROUP):
            each.mkdir(parents=True)
            shutil.chown(each, USER, GROUP)
        for each in CGROUP.glob("cgroup.*"):
            shutil.chown(each, USER, GROUP)
        RUNTIME.chmod(0o700)
        # A place that everybody can reach, wherever the programs are.
        self.installation = pathlib.Path("/run/corvane")
        self.installation.mkdir()
        sh("mount", "--bind", programs, self.installation)
        self.environment = {"HOME": str(HOME), "XDG_RUNTIME_DIR": str(RUNTIME), "LC_ALL": "C.UTF-8",
                            "PATH": f"{self.installation}/bin:/usr/sbin:/usr/bin:/sbin:/bin"}
        self.process = subprocess.Popen(self.as_user(*before, "/lib/systemd/systemd", "--user", "--log-target=null"),
                                        env=self.environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL,
                                        preexec_fn=lambda: (CGROUP / "cgroup.procs").write_text(str(os.getpid())))
        eventually((RUNTIME / "systemd/private").exists, "the manager's start")

    @staticmethod
    def as_user(*command):
        return ["setpriv", f"--reuid={USER}", f"--regid={GROUP}", "--clear-groups", *command]

    def run(self, *command):
        return sh(*self.as_user(*command), env=self.environment)

    def start(self, *command):
        """The running program, with its standard input and output."""
        return subprocess.Popen(self.as_user(*command), env=self.environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def systemctl(self, *words):
        return self.run("systemctl", "--user", *words)

    def ask(self, unit, name):
        return self.systemctl("show", f"--property={name}", "--value", unit).strip()

    def stop(self):
        self.systemctl("exit")
        self.process.wait(60)
        eventually(lambda: not (CGROUP / "cgroup.procs").read_text(encoding="ascii"), "the manager's end")
        for each in sorted(CGROUP.rglob("*/"), reverse=True):
            each.rmdir()
        CGROUP.rmdir()
        for where in ("/sys/fs/cgroup", "/home", "/run"):
            sh("umount", "--lazy", "--recursive", where)
