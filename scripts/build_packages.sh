#!/usr/bin/env bash
# Builds the Debian packages and the archive of cpack in a bare Debian 12 without network, and tries
# them in two others. The packages: lintian, nothing but what they depend on beside them, debian/tests,
# purged without a trace. The archive: in a folder it was not built for, with what its DEPENDENCIES
# name, the same tests. Results are in build/packages. Needs root, for systems of its own in a scratch
# folder; they come from where the apt sources of this machine say. CCACHE_DIR is used where it is set.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" -ne 0 ]; then
  echo "build_packages.sh: needs root, to make systems of its own and to enter them" >&2
  exit 1
fi
scripts/setup.sh packages

export LC_ALL=C.UTF-8
release=bookworm
output=$PWD/build/packages
version=$(sed -n 's/^  VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt)
mapfile -t packages < <(sed -n 's/^Package: //p' debian/control)
mapfile -t tools < <(sed -n 's/^Depends: //p' debian/tests/control | tr ', ' '\n' |
  grep -xvF -e '' "${packages[@]/#/-e}" | sort -u)
if ! head -1 debian/changelog | grep -qF "($version"; then
  echo "build_packages.sh: debian/changelog is not about version $version" >&2
  exit 1
fi

scratch=$(mktemp -d)
clean_up() {
  if grep -qF " $scratch" /proc/self/mounts; then
    echo "build_packages.sh: something is mounted below $scratch, which stays" >&2
  else
    rm -rf --one-file-system "$scratch"
  fi
}
trap clean_up EXIT
trap "exit 1" INT TERM

# enter SYSTEM OPTION COMMAND...: processes and what is mounted end with the command.
enter() {
  # shellcheck disable=SC2016
  unshare --mount --pid --fork --kill-child "$2" bash -euc '
    mount -t proc proc "$1/proc"
    if [ -n "${CCACHE_DIR:-}" ]; then
      mkdir -p "$1/ccache"
      mount --bind "$CCACHE_DIR" "$1/ccache"
    fi
    exec chroot "$1" env -i LC_ALL=C.UTF-8 HOME=/root DEBIAN_FRONTEND=noninteractive \
      PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin "${@:2}" </dev/null' \
    - "$scratch/$1" "${@:3}"
}
inside() { enter "$1" --net "${@:2}"; }
online() { enter "$1" --mount "${@:2}"; }
apt() {
  online "$1" apt-get -qq -y --no-install-recommends "${@:2}" >>"$output/apt.log" 2>&1 ||
    { tail -20 "$output/apt.log" >&2 && false; }
}
new_system() {
  mkdir "$scratch/$1"
  tar -xf "$scratch/bare.tar" -C "$scratch/$1"
  cp --dereference /etc/resolv.conf "$scratch/$1/etc/resolv.conf"
  apt "$1" update
}
copy_source() {
  mkdir -p "$1"
  git ls-files -z | tar --null --files-from=- -c | tar -x -C "$1"
}

# Whether what is installed runs, before there is anything but what it says it needs.
try_alone() {
  mkdir "$scratch/$1/tmp/alone"
  cp examples/models/simulated_camera.json "$scratch/$1/tmp/alone/model.json"
  inside "$1" env "${@:2}" sh -euc 'cd /tmp/alone
    planex --version
    planex info model.json --plot view.png >/dev/null
    python3 -B -c "import planex; print(planex.Model.from_file(\"model.json\"))"'
  rm -r --one-file-system "$scratch/$1/tmp/alone"
}
run_tests() {
  copy_source "$scratch/$1/tmp/source"
  sed -n 's/^Tests: //p' debian/tests/control | while read -r test; do
    mkdir "$scratch/$1/tmp/test"
    echo "--- $test"
    inside "$1" env --chdir=/tmp/source "${@:2}" HOME=/tmp/test AUTOPKGTEST_TMP=/tmp/test \
      "debian/tests/$test" >"$output/$1-$test.log" 2>&1 || { tail -40 "$output/$1-$test.log" && false; }
    rm -r --one-file-system "$scratch/$1/tmp/test"
  done
  rm -r --one-file-system "$scratch/$1/tmp/source"
}

# What is there, but for logs, the state of apt, and the caches of others (fontconfig, man-db).
files_of() {
  find "$scratch/$1" -xdev -printf '%P %y %m %u:%g %l\n' | sort |
    grep -vE '^var/(log|cache|lib/apt)[/ ]|^var/lib/dpkg/status-old '
}
# install_and_purge COMMAND...: the packages are installed while it runs, and leave no trace.
install_and_purge() {
  files_of packages >"$scratch/before"
  inside packages dpkg --install "${files[@]}" >/dev/null
  "$@"
  apt packages purge "${packages[@]}"
  files_of packages | diff "$scratch/before" -
}

mkdir -p "$output"
rm -f "$output"/*
echo "=== a bare Debian"
sources() {
  # shellcheck disable=SC2016
  apt-get indextargets --format '$(CODENAME) deb $(REPO_URI) $(RELEASE) $(COMPONENT)' \
    'Created-By: Packages' 'Origin: Debian' | sed -n "s/^$release[-a-z]* deb/deb/p" | sort -u
}
[ -n "$(sources)" ] || apt-get -qq update
mapfile -t deb_lines < <(sources)
mmdebstrap --quiet --variant=minbase "$release" "$scratch/bare.tar" "${deb_lines[@]}"

echo "=== packages"
new_system build
source=/build/planex-$version
copy_source "$scratch/build$source"
apt build build-dep "$source"
apt build install lintian
launcher=()
if [ -n "${CCACHE_DIR:-}" ]; then
  apt build install ccache
  launcher=(CCACHE_DIR=/ccache CCACHE_BASEDIR="$source" CCACHE_NOHASHDIR=1
    CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
inside build env --chdir="$source" "${launcher[@]}" DEB_BUILD_OPTIONS="parallel=$(nproc)" \
  dpkg-buildpackage -us -uc >"$output/build.log" 2>&1 || { tail -40 "$output/build.log" && false; }
mv "$scratch"/build/build/*_* "$output"
mkdir "$scratch/build/packages"
cp "$output"/*.{deb,dsc,tar.*,changes,buildinfo} "$scratch/build/packages"
inside build sh -c 'lintian --fail-on error /packages/*.changes' 2>&1 | tee "$output/lintian.log"
for package in "${packages[@]}"; do
  dpkg-deb --contents "$output/$package"_*.deb >"$output/$package.files"
done

echo "=== archive" # of the same objects; with search paths that packages leave out
inside build env --chdir="$source" sh -euc 'cd obj-*
  cmake . -DCMAKE_SKIP_INSTALL_RPATH=OFF -DCMAKE_INSTALL_LIBDIR=lib
  cmake --build .
  cpack -B /build/archive' >"$output/archive.log" 2>&1 || { tail -40 "$output/archive.log" && false; }
mv "$scratch"/build/build/archive/planex-*.tar.gz "$output"
tar -tvf "$output"/planex-*.tar.gz >"$output/archive.files"
rm -rf --one-file-system "$scratch/build"

echo "=== packages in a bare Debian"
new_system packages
mkdir "$scratch/packages/packages"
files=()
for package in "${packages[@]}"; do
  cp "$output/$package"_*.deb "$scratch/packages/packages"
  files+=("/packages/$(basename "$output/$package"_*.deb)")
done
depends() {
  online packages apt-get install --simulate --no-install-recommends "${files[@]}" |
    sed -n 's/^Inst \([^ ]*\) .*/\1/p' | grep -xvF "${packages[@]/#/-e}"
}
apt packages install $(depends)
install_and_purge try_alone packages
apt packages install "${tools[@]}"
install_and_purge run_tests packages

echo "=== archive in a bare Debian"
new_system archive
mkdir "$scratch/archive/srv/else"
tar -xf "$output"/planex-*.tar.gz -C "$scratch/archive/srv/else" --strip-components=1
place=/srv/else
apt archive install $(sed -n 's/^\([-+.a-z0-9]*\) [^ ]*$/\1/p' "$scratch/archive$place/DEPENDENCIES" | sort -u)
python=$(cd "$scratch/archive$place" && echo lib*/python3*/*-packages)
path=PATH=$place/bin:/usr/sbin:/usr/bin:/sbin:/bin
try_alone archive "$path" "PYTHONPATH=$place/$python"
apt archive install "${tools[@]}"
run_tests archive "$path" "PYTHONPATH=$place/$python" "MANPATH=$place/share/man" \
  "XDG_DATA_DIRS=$place/share" "CMAKE_PREFIX_PATH=$place" "PKG_CONFIG_PATH=$place/lib/pkgconfig"
ls -l "$output"/*.deb "$output"/*.tar.gz
