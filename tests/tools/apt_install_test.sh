#!/usr/bin/env bash
# tools/apt.sh against a fake apt-get: an index caught mid-sync must not stop
# an install that can succeed, and an install that cannot must fail with one
# line naming the packages.
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/bin"
# The fake fails `update` the number of times in $scratch/update-failures
# (forever when 'always'), and `install` when $scratch/install-fails exists.
cat >"$scratch/bin/apt-get" <<FAKE
#!/usr/bin/env bash
echo "\$*" >>"$scratch/calls"
case "\$*" in
   *update*)
      n="\$(cat "$scratch/update-failures")"
      [ "\$n" = 0 ] && exit 0
      [ "\$n" = always ] || echo \$((n - 1)) >"$scratch/update-failures"
      echo "E: File has unexpected size (1234 != 5678). Mirror sync in progress?" >&2
      exit 100 ;;
   *install*) [ -e "$scratch/install-fails" ] && exit 100; exit 0 ;;
esac
FAKE
printf '#!/bin/sh\nexec "$@"\n' >"$scratch/bin/sudo"
printf '#!/bin/sh\nexit 0\n' >"$scratch/bin/sleep"
chmod +x "$scratch/bin/"*
export PATH="$scratch/bin:$PATH"
. "$root/tools/apt.sh"

fail() { echo "apt_install_test: $*" >&2; exit 1; }
run() {  # run UPDATE_FAILURES INSTALL_FAILS -> sets status, err
   : >"$scratch/calls"
   echo "$1" >"$scratch/update-failures"
   rm -f "$scratch/install-fails"
   [ "$2" = yes ] && touch "$scratch/install-fails"
   status=0
   err="$( (apt_install tester pkg-a pkg-b) 2>&1 >/dev/null)" || status=$?
}

run 2 no
[ "$status" = 0 ] || fail "two update failures then success: status $status"
[ "$(grep -c update "$scratch/calls")" = 3 ] || fail "update not retried until it worked"

run always no
[ "$status" = 0 ] || fail "an update that never works must not stop an install that does"
grep -q "install -y -qq pkg-a pkg-b" "$scratch/calls" || fail "install not run after failed updates"

run 0 yes
[ "$status" != 0 ] || fail "a failed install must fail"
[ "$(printf '%s\n' "$err" | tail -n 1)" = "tester: cannot install: pkg-a pkg-b" ] ||
   fail "unexpected last line: $err"
echo "apt_install_test: ok"
