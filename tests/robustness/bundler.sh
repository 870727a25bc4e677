#!/bin/sh
# A bundler that does what the variable BUNDLER says.
# shellcheck disable=SC2034 # what BUNDLER says uses them
for word; do
  case $word in
    -input=*) in=${word#*=} ;;
    -output=*) out=${word#*=} ;;
  esac
done
eval "$BUNDLER"
