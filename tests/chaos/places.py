"""Places with an account for the computers: a directory, our own server, and other people's. Each can be killed, started
again, and put back to an earlier state."""

import os
import pwd
import shutil
import signal
import socket
import subprocess
import time

from proxy import CuttingProxy

PATIENCE_SECONDS = 60


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


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


def copy(source, target):
    """Owners and dates included."""
    subprocess.run(["cp", "-a", source, target], check=True)


class Place:
    """`data` is what a power cut leaves, and what a backup holds."""

    proxy = None
    is_durable = True  # what was acknowledged outlives a power cut
    has_tokens = False

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

    def start(self):
        self.configure()
        with open(os.path.join(self.directory, "log"), "ab") as log:
            self.process = subprocess.Popen(self.command(), stdin=subprocess.DEVNULL, stdout=log, stderr=log,
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
        os.remove(os.path.join(self._record(), "usage"))
        super().put_back(path)

    def _record(self):
        return os.path.join(self.directory, "hub", "accounts", self.ACCOUNT)


class WebDav(Served):
    """Another's server, which a file tells everything. It does not run as root."""

    is_durable = False
    USER, PASSWORD = "alice", "geheim"
    USERS = f"{USER}:{PASSWORD}\n"
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
    USERS = "alice:{PLAIN}geheim\n"
    CONFIGURATION = """
load_module /usr/lib/nginx/modules/ngx_http_dav_ext_module.so;
daemon off;
worker_processes 4;
pid @DIR@/pid;
error_log @DIR@/error;
events { worker_connections 256; }
http {
  access_log off;
  client_body_temp_path @DIR@/body;
  proxy_temp_path @DIR@/proxy;
  fastcgi_temp_path @DIR@/fastcgi;
  uwsgi_temp_path @DIR@/uwsgi;
  scgi_temp_path @DIR@/scgi;
  client_max_body_size 0;
  server {
    listen 127.0.0.1:@PORT@ reuseport;
    root @DIR@/data;
    location / {
      auth_basic "places";
      auth_basic_user_file @DIR@/users;
      dav_methods PUT DELETE MKCOL COPY MOVE;
      dav_ext_methods PROPFIND OPTIONS;
    }
  }
}
"""
    COMMAND = ("/usr/sbin/nginx", "-p", "@DIR@", "-c", "@DIR@/conf", "-e", "@DIR@/error")


KINDS = {"directory": Directory, "hub": Hub, "nginx": Nginx}
