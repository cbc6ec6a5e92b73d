"""Places with an account for the computers: a directory, our own server, and other people's. Each can be killed, started
again, and put back to an earlier state."""

import base64
import hashlib
import os
import pickle
import pwd
import random
import shutil
import signal
import socket
import subprocess
import time

from bucket import Bucket
from proxy import CuttingProxy

# Ends a server with the test.
AT_MOST_AS_LONG = ("setpriv", "--pdeathsig", "TERM")
PATIENCE_SECONDS = 600
OF_PLACES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "pelto", "place")
SECONDS_AWAY = 1.1


def free_port():
    """None of those that the system gives to connections, one of which might have it by the time that it is needed."""
    while True:
        port = random.SystemRandom().randrange(15_000, 32_000)
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                pass  # somebody has it


def listens(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


def fingerprint_of(directory):
    """Names, sizes and dates of all files below."""
    found = []
    for at, _, names in os.walk(directory):
        for name in names:
            path = os.path.join(at, name)
            try:
                status = os.stat(path)
            except FileNotFoundError:
                continue  # removed meanwhile
            found.append((os.path.relpath(path, directory), status.st_size, status.st_mtime_ns))
    return sorted(found)


def configuration_of(server, **marks):
    """What the server of that name is told wherever a test runs one."""
    with open(os.path.join(OF_PLACES, "servers", server + ".conf"), encoding="utf-8") as file:
        text = file.read()
    for mark, value in marks.items():
        text = text.replace(f"@{mark}@", value)
    return text


def copy(source, target):
    """Owners and dates included; but for what goes meanwhile."""
    done = subprocess.run(["cp", "-a", source, target], stderr=subprocess.PIPE, text=True, check=False,
                          env={**os.environ, "LC_ALL": "C"})
    gone = [line for line in done.stderr.splitlines() if line.endswith(": No such file or directory")]
    if len(gone) != len(done.stderr.splitlines()) or done.returncode and not os.path.isdir(target):
        raise RuntimeError(f"{source} cannot be copied: {done.stderr}")


class Place:
    """`data` is what a power cut leaves, and what a backup holds."""

    proxy = None
    is_durable = True  # what was acknowledged outlives a power cut
    has_tokens = False
    has_files = True  # an object is a file below `data`

    def __init__(self, directory):
        self.directory = directory
        self.data = os.path.join(directory, "data")

    def interpose(self):
        """The account is set; whatever stands between computers and place from now on gets there."""

    def fingerprint(self):
        return fingerprint_of(self.data)

    def objects(self):
        """The files of all objects."""
        return [os.path.join(at, name) for at, _, names in os.walk(self.data) for name in names]

    def back_up(self, path):
        copy(self.data, path)

    def put_back(self, path):
        self.kill()
        shutil.rmtree(self.data)
        copy(path, self.data)
        self.start()

    def age(self, seconds):
        """All that is there becomes older."""
        for path in self.objects():
            aged = os.stat(path).st_mtime - seconds
            os.utime(path, (aged, aged))

    def forget_what_was_counted(self):
        """What a server knows of objects that are others now."""

    def secrets(self, computer):
        """The lines that open the place to a computer."""
        return ""

    def end(self):
        self.kill()


class Directory(Place):
    """A mounted disk, which "killed" is not there."""

    def __init__(self, directory, programs, draw):
        super().__init__(directory)
        os.mkdir(self.data)
        self.address = self.data

    def kill(self):
        if os.path.exists(self.data):
            os.rename(self.data, self.data + ".away")

    def start(self):
        os.rename(self.data + ".away", self.data)

    def put_back(self, path):
        shutil.rmtree(self.data)
        copy(path, self.data)


class Served(Place):
    """What a program serves, later by way of a proxy that cuts."""

    runs_as = None

    def __init__(self, directory, draw):
        super().__init__(directory)
        self.draw = draw
        self.process = None
        self.port = self.shown_port = free_port()

    def interpose(self):
        """From now on the proxy is where the server was."""
        self.kill()
        self.port = free_port()
        self.proxy = CuttingProxy(self.shown_port, self.port, self.draw)
        self.start()

    def start(self, before=()):
        """With the words `before` the server's command."""
        self.configure()
        with open(os.path.join(self.directory, "log"), "ab") as log:
            self.process = subprocess.Popen([*AT_MOST_AS_LONG, *before, *self.command()], stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                            start_new_session=True, user=self.runs_as,
                                            group=self.runs_as and pwd.getpwuid(self.runs_as).pw_gid)
        end = time.monotonic() + PATIENCE_SECONDS
        while not listens(self.port):
            if self.process.poll() is not None or time.monotonic() > end:
                raise RuntimeError(f"{self.command()} does not start; see {self.directory}/log")
            time.sleep(0.01)

    def kill(self):
        """With all its processes."""
        if self.process is None:
            return
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass  # it has ended
        self.process.wait()
        self.process = None


class Hub(Served):
    """corvane-hub. Each computer has a token of its own."""

    ACCOUNT = "ada"
    has_tokens = True

    def __init__(self, directory, programs, draw):
        super().__init__(directory, draw)
        self.program = os.path.join(programs, "corvane-hub")
        self.configuration = os.path.join(directory, "conf")
        self.configure()
        self.address = f"hub://127.0.0.1:{self.shown_port}?tls=no"
        self.account("add", self.ACCOUNT)
        self.tokens = {}
        self.data = os.path.join(self._record(), "objects")
        self.start()

    def configure(self):
        with open(self.configuration, "w", encoding="utf-8") as file:
            file.write(f"data = {self.directory}/hub\nlisten = 127.0.0.1:{self.port}\n")

    def account(self, *arguments):
        return subprocess.run([self.program, "--config", self.configuration, "account", *arguments], check=True,
                              stdout=subprocess.PIPE, text=True).stdout.strip()

    def command(self):
        return [self.program, "--config", self.configuration, "serve"]

    def secrets(self, computer):
        if computer not in self.tokens:
            self.tokens[computer] = self.account("token", self.ACCOUNT, computer)
        return self.tokens[computer] + "\n"

    def revoke(self, computer):
        self.account("revoke", self.ACCOUNT, computer)
        del self.tokens[computer]

    def set_quota(self, size):
        self.account("quota", self.ACCOUNT, size)

    def put_back(self, path):
        self.forget_what_was_counted()
        super().put_back(path)

    def forget_what_was_counted(self):
        os.remove(os.path.join(self._record(), "usage"))

    def _record(self):
        return os.path.join(self.directory, "hub", "accounts", self.ACCOUNT)


class WebDav(Served):
    """Another's server, which a file tells everything. It does not run as root."""

    is_durable = False
    USER, PASSWORD = "alice", "geheim"
    USERS = f"{USER}:{PASSWORD}\n"
    HASHED_USERS = f"{USER}:{{SHA}}{base64.b64encode(hashlib.sha1(PASSWORD.encode()).digest()).decode()}\n"
    CONFIGURATION = ""
    COMMAND = ()

    def __init__(self, directory, programs, draw):
        super().__init__(directory, draw)
        self.runs_as = pwd.getpwnam("nobody").pw_uid if os.geteuid() == 0 else None
        self.address = f"http://127.0.0.1:{self.shown_port}"
        os.mkdir(self.data)
        if self.runs_as is not None:
            for path in (directory, self.data):
                os.chown(path, self.runs_as, -1)
        self.start()

    def configure(self):
        for name, text in (("conf", self.CONFIGURATION), ("users", self.USERS)):
            with open(os.path.join(self.directory, name), "w", encoding="utf-8") as file:
                file.write(self._filled_in(text))

    def kill(self):
        """A server needs more than a moment to come again. Within one, nginx would give the same tag to what is there then."""
        super().kill()
        time.sleep(SECONDS_AWAY)

    def lose(self, path, loss):
        """What a power cut leaves of an object: nothing, or its name."""
        if loss == "empty":
            os.truncate(path, 0)
        elif loss == "gone":
            os.remove(path)
            if os.path.basename(path) == "o":
                os.rmdir(os.path.dirname(path))

    def _filled_in(self, text):
        return text.replace("@DIR@", self.directory).replace("@PORT@", str(self.port))

    def command(self):
        return [self._filled_in(each) for each in self.COMMAND]

    def secrets(self, computer):
        return f"{self.USER}\n{self.PASSWORD}\n"


class Nginx(WebDav):
    USERS = WebDav.HASHED_USERS
    CONFIGURATION = configuration_of("nginx", LISTENING="", LINES="")
    COMMAND = ("/usr/sbin/nginx", "-p", "@DIR@", "-c", "@DIR@/conf", "-e", "@DIR@/error")


class Apache(WebDav):
    USERS = WebDav.HASHED_USERS
    CONFIGURATION = configuration_of(
        "apache", WHO='AuthName "places"\n  AuthUserFile "@DIR@/users"\n  Require valid-user\n  AuthType Basic')
    COMMAND = ("/usr/sbin/apache2", "-f", "@DIR@/conf", "-DFOREGROUND")

    def configure(self):
        super().configure()
        # A killed one leaves it behind, and with it another would not start.
        if os.path.exists(os.path.join(self.directory, "pid")):
            os.remove(os.path.join(self.directory, "pid"))


class Lighttpd(WebDav):
    CONFIGURATION = configuration_of("lighttpd")
    COMMAND = ("/usr/sbin/lighttpd", "-D", "-f", "@DIR@/conf")


class Rclone(WebDav):
    COMMAND = ("/usr/bin/rclone", "serve", "webdav", "@DIR@/data", "--config", "@DIR@/conf", "--cache-dir", "@DIR@/cache",
               "--addr", "127.0.0.1:@PORT@", "--user", WebDav.USER, "--pass", WebDav.PASSWORD)


class Ceph(Served):
    """Ceph's gateway for S3. What it keeps is in the memory of another process, which is not killed."""

    has_files = False

    def __init__(self, directory, programs, draw):
        super().__init__(directory, draw)
        self.bucket = Bucket(self.KEY, self.SECRET)
        self.address = f"s3://{Bucket.NAME}?endpoint=http://127.0.0.1:{self.shown_port}"
        script = os.path.join(OF_PLACES, "ceph-server")
        with open(os.path.join(directory, "log"), "ab") as log:
            command = [*AT_MOST_AS_LONG, script, directory, str(self.port), str(free_port()), self.KEY, self.SECRET]
            self.cluster = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)
        self._await_bucket()

    KEY, SECRET = "AKTEST", "geheim"

    def _await_bucket(self):
        end = time.monotonic() + PATIENCE_SECONDS
        while not (listens(self.port) and self.bucket.make(self.port)):
            if self.cluster.poll() is not None or time.monotonic() > end:
                raise RuntimeError(f"Ceph does not start; see {self.directory}/log")
            time.sleep(0.2)

    def interpose(self):
        """The gateway alone moves."""
        children = subprocess.run(["pgrep", "-P", str(self.cluster.pid), "radosgw"], check=True, stdout=subprocess.PIPE)
        os.kill(int(children.stdout), signal.SIGKILL)
        while listens(self.port):
            time.sleep(0.01)
        super().interpose()

    def configure(self):
        pass

    def command(self):
        return ["radosgw", "-c", os.path.join(self.directory, "conf"), "-n", "client.admin", "-f",
                f"--rgw-frontends=beast endpoint=127.0.0.1:{self.port}"]

    def secrets(self, computer):
        return f"{self.KEY}\n{self.SECRET}\n"

    def fingerprint(self):
        return self.bucket.list(self.port)

    def back_up(self, path):
        with open(path, "wb") as file:
            pickle.dump([(name, self.bucket.get(self.port, name)) for name, *_ in self.fingerprint()], file)

    def put_back(self, path):
        for name, *_ in self.fingerprint():
            self.bucket.remove(self.port, name)
        with open(path, "rb") as file:
            for name, contents in pickle.load(file):
                self.bucket.put(self.port, name, contents)

    def end(self):
        self.kill()
        self.cluster.terminate()
        self.cluster.wait()


KINDS = {"directory": Directory, "hub": Hub, "apache": Apache, "lighttpd": Lighttpd, "nginx": Nginx, "rclone": Rclone,
         "ceph": Ceph}
