# Sourced by the project's install steps. `apt_install WHO PKG...` installs
# the packages given. A package mirror is sometimes caught mid-sync: an index
# then fails to download and `apt-get update` exits non-zero although what we
# need installs fine from the indices already there. So the update is retried
# a few times and then let go; only a failed install fails, with one line
# naming the packages.
apt_install() {
   local who="$1"
   shift
   [ $# -gt 0 ] || return 0
   local sudo_cmd=""
   [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
   local attempt
   for attempt in 1 2 3; do
      if $sudo_cmd apt-get update -qq; then break; fi
      echo "$who: apt-get update failed (attempt $attempt of 3)" >&2
      [ "$attempt" -eq 3 ] || sleep $((attempt * 5))
   done
   for attempt in 1 2; do
      if DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "$@" >/dev/null; then
         return 0
      fi
      [ "$attempt" -eq 2 ] || { sleep 10; $sudo_cmd apt-get update -qq || true; }
   done
   echo "$who: cannot install: $*" >&2
   return 1
}
