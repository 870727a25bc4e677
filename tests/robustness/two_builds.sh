#!/bin/sh
# Builds the tool twice from copies of the source tree, in folders of different names:
#   two_builds.sh SOURCE FOLDER
# Ends with status 0 when both have the same bytes.
set -e
export SOURCE_DATE_EPOCH=1700000000
for name in a a_much_longer_name; do
  mkdir -p "$2/$name/source"
  tar -C "${source:-$1}" --exclude=./build --exclude=./.git -c . | tar -C "$2/$name/source" -x
  source=$2/$name/source
  cd "$source"
  cmake --preset release -DTAVROFUSE_TESTS=OFF -B ../out
  cmake --build ../out --target tavrofuse
done
cmp "$2/a/out/tavrofuse/tavrofuse" "$2/a_much_longer_name/out/tavrofuse/tavrofuse"
