#!/usr/bin/env bash
# Has the product of a build directory of the Windows preset know the tests' module.
#
#   pin_module.sh BUILD
#
# The build is configured with the hash of the signed module, as a release is with that of the module
# that ships. A build that knows it is left as it is.
set -euo pipefail
cmake --build "$1" --target signed_module
hash=$(sha256sum "$1/tests/endtoend/module/KSMessages.exe" | cut -d ' ' -f 1)
grep -qF "$hash" "$1/generated/deployment.h" || cmake -DKESTRELON_MODULE_SHA256="$hash" "$1"
