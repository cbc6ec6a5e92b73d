"""axe-core, which finds faults of accessibility in a page: one version, from the npm registry, checked and kept."""

import hashlib
import os
import shutil
import subprocess
import tarfile
import tempfile

VERSION = "4.14.1"
SHA512 = ("1477dafa598d8d065f273d6af302aa203c02e83131707b7fa648cd41bd3d6b73"
          "4f8c22a0dab86ee6a6f64b8afbe804b214d36db85a2826965edfb3a0b9d546b5")


class AxeError(Exception):
    """The library cannot be had."""


def is_whole(archive):
    if not os.path.exists(archive):
        return False
    with open(archive, "rb") as file:
        return hashlib.sha512(file.read()).hexdigest() == SHA512


def fetch(archive):
    if not shutil.which("npm"):
        raise AxeError("there is no npm; scripts/packages test installs it")
    with tempfile.TemporaryDirectory(dir=os.path.dirname(archive)) as directory:
        done = subprocess.run(["npm", "pack", "--silent", f"axe-core@{VERSION}"], cwd=directory, capture_output=True, text=True)
        fetched = os.path.join(directory, f"axe-core-{VERSION}.tgz")
        if done.returncode != 0 or not os.path.exists(fetched):
            raise AxeError(f"npm does not fetch axe-core {VERSION}: {done.stderr.strip()}")
        if not is_whole(fetched):
            raise AxeError(f"axe-core {VERSION} is another one than was looked at")
        os.replace(fetched, archive)


def source(build):
    """The library's text; fetched once for the build."""
    archive = os.path.join(build, f"axe-core-{VERSION}.tgz")
    if not is_whole(archive):
        fetch(archive)
    with tarfile.open(archive) as files:
        return files.extractfile("package/axe.min.js").read().decode()
