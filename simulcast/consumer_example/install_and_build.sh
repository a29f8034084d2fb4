#!/bin/sh
# Installs the build into a scratch prefix, builds consumer.cpp against it through pkg-config
# alone, and runs it: it must start, fail to find a channel nobody writes, and say so (exit 2).
#   install_and_build.sh <build dir> <consumer.cpp> [extra compiler flags]
set -eu
build_dir=$1
source=$2
extra_flags=${3:-}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build_dir" --prefix "$scratch/prefix" > "$scratch/install.log"
export PKG_CONFIG_PATH="$scratch/prefix/lib/pkgconfig"
# shellcheck disable=SC2046,SC2086
c++ -std=c++20 -Wall -Wextra -Werror $extra_flags -o "$scratch/consumer" "$source" \
    $(pkg-config --cflags --libs sdi_tap_simulcast)
set +e
"$scratch/consumer" "sdi_tap_consumer_example_$$" 1
status=$?
set -e
if [ "$status" -ne 2 ]; then
    echo "consumer exited with $status, expected 2 (no such channel)" >&2
    exit 1
fi
echo "consumer built against the installed library and ran"
