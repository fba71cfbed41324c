# Sourced by the other programs of this folder: makes sure that Debian packages are there.

# What the library, its tools and its tests are built with, and what the other steps add.
build_packages="g++ cmake ninja-build pkg-config libcli11-dev nlohmann-json3-dev libcsv-dev
  libcurl4-openssl-dev libexpat1-dev libcairo2-dev fonts-dejavu-core libmseed-dev libpq-dev"
python_packages="pybind11-dev python3-dev python3-numpy"
test_packages="libgtest-dev libgmock-dev locales python3 postgresql
  python3-pandas python3-pytest mypy"
bench_packages="libbenchmark-dev libsqlite3-dev sqlite3 libtbb-dev libboost-dev libgsl-dev
  liblz4-dev"
fuzz_packages="clang"
lint_packages="clang-format clang-tidy"
packaging_packages="dpkg-dev file doxygen"
root_packages="mmdebstrap"

say() { printf '== %s\n' "$*" >&2; }
fail() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# ensure_packages NAME...: installs those that are missing, through the package manager.
ensure_packages() {
  local missing="" package
  command -v dpkg-query >/dev/null 2>&1 ||
    fail "this is not a Debian system; install the equivalents of: $*"
  for package in "$@"; do
    case "$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null)" in
      "install ok installed") ;;
      *) missing="$missing $package" ;;
    esac
  done
  [ -n "$missing" ] || return 0

  local as_root=""
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null 2>&1 ||
      fail "packages are missing, and neither root nor sudo is available to install them;
       ask an administrator to run: apt-get install$missing"
    as_root="sudo"
  fi
  say "installing with apt-get:$missing"
  # shellcheck disable=SC2086
  $as_root env DEBIAN_FRONTEND=noninteractive sh -ec "
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends $missing" >&2 ||
    fail "apt-get could not install:$missing"
}
