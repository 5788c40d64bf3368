"""What pip runs to build the package (PEP 517): CMake builds and installs, this zips.

``pip install .`` takes libplanex along, beside the module. One setting:
``--config-settings build-dir=DIR`` keeps what CMake builds, and the next build shorter.
"""

import base64
import gzip
import hashlib
import io
import os
import pathlib
import re
import shutil
import subprocess
import sys
import sysconfig
import tarfile
import tempfile
import time
import tomllib
import zipfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
REMEDY = "scripts/setup.sh build python installs what is needed (Debian 12)"


class Metadata:
    """What pyproject.toml and CMakeLists.txt say of the package."""

    def __init__(self):
        with open(ROOT / "pyproject.toml", "rb") as file:
            self.project = tomllib.load(file)["project"]
        text = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
        self.name = self.project["name"]
        self.version = re.search(r"^\s*VERSION (\d+\.\d+\.\d+)$", text, re.MULTILINE)[1]

    def base(self):
        return f"{self.name}-{self.version}"

    def text(self):
        lines = ["Metadata-Version: 2.1", f"Name: {self.name}", f"Version: {self.version}",
                 f"Summary: {self.project['description']}",
                 f"Requires-Python: {self.project['requires-python']}"]
        lines += [f"Requires-Dist: {name}" for name in self.project["dependencies"]]
        for extra, names in sorted(self.project["optional-dependencies"].items()):
            lines.append(f"Provides-Extra: {extra}")
            lines += [f'Requires-Dist: {name}; extra == "{extra}"' for name in names]
        readme = (ROOT / self.project["readme"]).read_text(encoding="utf-8")
        return "\n".join(lines) + "\nDescription-Content-Type: text/markdown\n\n" + readme


def tag():
    python = f"cp{sys.version_info.major}{sys.version_info.minor}"
    platform = re.sub(r"[-.]", "_", sysconfig.get_platform())
    return f"{python}-{python}{sys.abiflags}-{platform}"


def info_files(metadata):
    """The folder that describes a wheel, but RECORD."""
    wheel = (f"Wheel-Version: 1.0\nGenerator: build_backend\nRoot-Is-Purelib: false\n"
             f"Tag: {tag()}\n")
    return {"METADATA": metadata.text(), "WHEEL": wheel}


def fail(problem):
    """Ends with a text for people; a traceback would hide it."""
    print(f"\nplanex cannot be built: {problem}.\n{REMEDY}.", file=sys.stderr)
    sys.exit(1)


def run(step, *command):
    if subprocess.run(command, check=False).returncode != 0:
        fail(f"{step} failed; the reason stands above")


def build_and_install(build, prefix):
    for tool, found in (("cmake", shutil.which("cmake")),
                        ("g++", shutil.which(os.environ.get("CXX", "g++").split()[0]))):
        if not found:
            fail(f"there is no {tool}")
    generator = ["-G", "Ninja"] if shutil.which("ninja") else []
    unwanted = ("TESTS", "BENCH", "EXAMPLES", "TOOLS", "ESTIMATION", "ACQUISITION")
    off = [f"-DPLANEX_BUILD_{part}=OFF" for part in unwanted]
    run("cmake", "cmake", "-S", ROOT, "-B", build, *generator, *off, "-DCMAKE_BUILD_TYPE=Release",
        f"-DPython_EXECUTABLE={sys.executable}", "-DPLANEX_BUILD_PYTHON=ON",
        "-DPLANEX_BUILD_IO=ON", "-DPLANEX_PYTHON_BUNDLE=ON", "-DPLANEX_PYTHON_DIR=.",
        # No path of this build in what is built, so that each gives the same bytes.
        "-DCMAKE_BUILD_WITH_INSTALL_RPATH=ON")
    os.environ.setdefault("CMAKE_BUILD_PARALLEL_LEVEL", str(len(os.sched_getaffinity(0))))
    run("the compiler", "cmake", "--build", build, "--target", "planex_python")
    run("the installation", "cmake", "--install", build, "--prefix", prefix, "--component",
        "python", "--strip")


def collected(prefix):
    """Name in the wheel -> file. A library goes under the name that the loader looks for, which
    is the link to it: wheels have no links."""
    files = sorted(p for p in prefix.rglob("*") if p.is_file())
    behind_links = {p.resolve() for p in files if p.is_symlink()}
    return {p.relative_to(prefix).as_posix(): p for p in files
            if p.is_symlink() or p.resolve() not in behind_links}


def timestamp():
    return max(int(os.environ.get("SOURCE_DATE_EPOCH", 0)), 315532800)  # zip begins in 1980


def write_wheel(path, metadata, files):
    info = f"{metadata.base()}.dist-info"
    contents = {name: file.read_bytes() for name, file in files.items()}
    contents |= {f"{info}/{name}": text.encode() for name, text in info_files(metadata).items()}
    record = ""
    for name, data in contents.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
        record += f"{name},sha256={digest},{len(data)}\n"
    contents[f"{info}/RECORD"] = f"{record}{info}/RECORD,,\n".encode()
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, data in contents.items():
            entry = zipfile.ZipInfo(name, time.gmtime(timestamp())[:6])
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = (0o100755 if ".so" in name else 0o100644) << 16
            archive.writestr(entry, data)


# ----- what pip and other front ends call -----

def prepare_metadata_for_build_wheel(metadata_directory, config_settings=None):
    metadata = Metadata()
    folder = pathlib.Path(metadata_directory, f"{metadata.base()}.dist-info")
    folder.mkdir()
    for name, text in info_files(metadata).items():
        (folder / name).write_text(text, encoding="utf-8")
    return folder.name


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    metadata = Metadata()
    name = f"{metadata.base()}-{tag()}.whl"
    with tempfile.TemporaryDirectory() as scratch:
        prefix = pathlib.Path(scratch, "prefix")
        build = (config_settings or {}).get("build-dir") or os.path.join(scratch, "build")
        build_and_install(build, prefix)
        write_wheel(pathlib.Path(wheel_directory, name), metadata, collected(prefix))
    return name


def build_sdist(sdist_directory, config_settings=None):
    metadata = Metadata()
    listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-z"], check=False, capture_output=True)
    if listed.returncode != 0 or not listed.stdout:
        fail("a source archive is made from a clone of the repository, with git")

    def plain(entry):
        entry.uid = entry.gid = 0
        entry.uname = entry.gname = ""
        entry.mtime = timestamp()
        return entry

    name = f"{metadata.base()}.tar.gz"
    with (open(os.path.join(sdist_directory, name), "wb") as file,
          gzip.GzipFile("", "wb", fileobj=file, mtime=timestamp()) as packed,
          tarfile.open(fileobj=packed, mode="w", format=tarfile.PAX_FORMAT) as archive):
        for path in sorted(filter(None, os.fsdecode(listed.stdout).split("\0"))):
            archive.add(ROOT / path, f"{metadata.base()}/{path}", False, filter=plain)
        entry = tarfile.TarInfo(f"{metadata.base()}/PKG-INFO")
        text = metadata.text().encode()
        entry.size = len(text)
        archive.addfile(plain(entry), io.BytesIO(text))
    return name
