#!/usr/bin/env bash
# The Debian packages that building, testing and the demo use, in one list, and
# the step that installs the missing ones.
#
#   tools/deps.sh               everything (make test, make demo)
#   tools/deps.sh --required    what the build cannot do without (make, make install)
#   tools/deps.sh --ci [PKG...] everything and PKG..., through sudo when not root;
#                               a failure to install ends with status 1
#   tools/deps.sh --list        prints "required NAME" and "optional NAME" lines
#   tools/deps.sh --check       compares the list with what is used (below); a
#                               difference ends with status 1 (a test runs it)
#
# As root the missing packages are installed (apt-get update, then apt-get
# install -y); otherwise the one command that installs them is printed and the
# step goes on. Without the optional packages the demo draws no pictures and
# the tests that need them skip; nothing fails for their absence.
set -euo pipefail

required=(
  g++                 # the compiler (C++20) and its OpenMP runtime
  cmake
  make
  libgtest-dev        # the test suite
  libeigen3-dev       # kelta_kmc's linear algebra
  nlohmann-json3-dev  # the JSON summary
  gemmi-dev           # the crystal reader of kelta_kmc (CIF files, symmetry)
  tao-pegtl-dev       # the parser gemmi's CIF reader is built on
  libstb-dev          # stb_sprintf, which gemmi's headers include
)
optional=(
  gnuplot-nox         # the demo's pictures; the plot tests
  python3             # Debian's /usr/bin/python3, which runs the matplotlib scripts
  python3-numpy       # the matplotlib scripts
  python3-matplotlib
  python3-jsonschema  # the test of the JSON summary against its schema
  groff-base          # the test that renders the manual pages
  psi4                # the quantum-chemistry engine the couplings' physics tests run
)

# What the project uses, and the package that provides it: the CMake packages
# and include directories of the build (required), the programs the tests and
# the demo run and the Python modules of the scripts (optional: what needs them
# skips without them). An empty package is the compiler's or the C library's;
# several packages are all needed (Debian's gemmi-dev does not depend on the
# libraries its headers include).
declare -A provides=(
  [find:OpenMP]=g++ [find:GTest]=libgtest-dev [find:Eigen3]=libeigen3-dev [find:nlohmann_json]=nlohmann-json3-dev
  [find:Threads]= [include:gtest]=libgtest-dev [include:gmock]=libgtest-dev [include:Eigen]=libeigen3-dev
  [include:nlohmann]=nlohmann-json3-dev [include:sys]= [include:bits]= [include:linux]=
  [include:gemmi]="gemmi-dev tao-pegtl-dev libstb-dev"
  [run:gnuplot]=gnuplot-nox [run:groff]=groff-base [run:/usr/bin/python3]=python3 [run:psi4]=psi4
  [import:numpy]=python3-numpy [import:matplotlib]=python3-matplotlib [import:mpl_toolkits]=python3-matplotlib
  [import:jsonschema]=python3-jsonschema)
python_standard=" argparse collections csv glob io itertools json math os pathlib re shutil subprocess sys tempfile unittest "

check() {
  cd "$(dirname "$0")/.."
  local -A need=([cmake]=required [make]=required [g++]=required)
  local status=0 what package
  use() {  # use KIND:NAME required|optional
    if [ -z "${provides[$1]+set}" ]; then echo "deps: ${1#*:} is used: which Debian package provides it?"; status=1; return; fi
    for package in ${provides[$1]}; do
      [ "${need[$package]:-}" = required ] || need[$package]=$2
    done
  }
  # The sources, the tests and the demo; not the test data, not fuzz/ (only make
  # fuzz builds it, with clang).
  files() { find src tools tests bench demo -path tests/data -prune -o -type f \( -name '*.cpp' -o -name '*.h' -o -name '*.sh' -o -name '*.py' \) -print; }
  for what in $(grep -ohE 'find_package\(\s*\w+' CMakeLists.txt | sed -E 's/find_package\(\s*//'); do use "find:$what" required; done
  for what in $(files | xargs grep -hoE '^\s*#\s*include\s*<[^>/]+/' | sed -E 's/.*<//; s/\/$//' | sort -u); do
    use "include:$what" required
  done
  for what in $({ files | grep -E '^(tests|demo)/' | xargs cat; cat CMakeLists.txt; } \
                | grep -oE '(^|[^[:alnum:]_/.-])(gnuplot|groff|psi4|/usr/bin/python3)\b' | grep -oE '(gnuplot|groff|psi4|/usr/bin/python3)$' | sort -u); do
    use "run:$what" optional
  done
  for what in $(files | xargs grep -hoE '(^|["'"'"'])\s*(import\s+[[:alnum:]_.]+|from\s+[[:alnum:]_.]+\s+import)' \
                | sed -E 's/\s+import$//; s/.*(import|from)\s+//; s/\..*//' | sort -u); do
    [[ $python_standard == *" $what "* ]] || use "import:$what" optional
  done
  for package in "${required[@]}" "${optional[@]}"; do
    local listed=optional
    for r in "${required[@]}"; do [ "$r" = "$package" ] && listed=required; done
    if [ -z "${need[$package]:-}" ]; then echo "deps: $package is listed, and nothing uses it"; status=1
    elif [ "${need[$package]}" != "$listed" ]; then echo "deps: $package is used as ${need[$package]}, listed as $listed"; status=1
    fi
    unset "need[$package]"
  done
  for package in "${!need[@]}"; do echo "deps: $package is used and not listed"; status=1; done
  [ $status = 0 ] && echo "deps: the list is what the build, the tests and the demo use"
  return $status
}

mode=all
extra=()
case "${1:-}" in
  --check) check; exit ;;
  --list)
    printf 'required %s\n' "${required[@]}"
    printf 'optional %s\n' "${optional[@]}"
    exit 0 ;;
  --required) mode=required ;;
  --ci) mode=ci; shift; extra=("$@") ;;
  "") ;;
  *) echo "usage: $0 [--required | --ci [PACKAGE...] | --list | --check]" >&2; exit 2 ;;
esac

wanted=("${required[@]}")
if [ "$mode" != required ]; then wanted+=("${optional[@]}" "${extra[@]}"); fi

if ! command -v dpkg-query > /dev/null; then
  echo "deps: not a Debian system; install the equivalents of these Debian packages: ${wanted[*]}"
  if [ "$mode" = ci ]; then exit 1; fi
  exit 0
fi

installed() { dpkg-query -W -f='${db:Status-Status}\n' "$1" 2> /dev/null | grep -qx installed; }
is_required() { local r; for r in "${required[@]}"; do [ "$r" = "$1" ] && return 0; done; return 1; }

missing=() missing_required=()
for p in "${wanted[@]}"; do
  if ! installed "$p"; then
    missing+=("$p")
    if is_required "$p"; then missing_required+=("$p"); fi
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" != 0 ]; then
  if [ "$mode" != ci ]; then
    echo "deps: missing Debian packages: ${missing[*]}"
    echo "deps: to install them run:  sudo apt-get install -y ${missing[*]}"
    if [ ${#missing_required[@]} -eq 0 ]; then
      echo "deps: going on without them: the demo draws no pictures and the tests that use them skip"
    else
      echo "deps: going on; the build fails without ${missing_required[*]} unless installed another way"
    fi
    exit 0
  fi
  sudo=sudo
fi

# Required packages first, on their own, so that an optional one that cannot be
# installed does not hold them back.
export DEBIAN_FRONTEND=noninteractive
apt_install() { $sudo apt-get install -y -qq --no-install-recommends "$@" > /dev/null; }
echo "deps: installing ${missing[*]}"
status=0
$sudo apt-get update -qq || status=1
if [ ${#missing_required[@]} -gt 0 ] && ! apt_install "${missing_required[@]}"; then
  echo "deps: could not install ${missing_required[*]}; the build needs them" >&2
  status=1
fi
rest=()
for p in "${missing[@]}"; do is_required "$p" || rest+=("$p"); done
if [ ${#rest[@]} -gt 0 ] && ! apt_install "${rest[@]}"; then
  echo "deps: could not install ${rest[*]}; going on without them" >&2
  [ "$mode" = ci ] && status=1
fi
# Only the CI run stops here; otherwise the build itself says what it lacks.
if [ "$mode" = ci ]; then exit $status; fi
exit 0
