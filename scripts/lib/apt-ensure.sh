# shellcheck shell=sh
# apt_ensure PACKAGE...: installs with apt-get those of the Debian packages that are not
# installed yet; nothing (not even apt-get update) when all are. Uses sudo only when not root.
# Meant to be sourced by the scripts next to it.
apt_ensure() {
  missing=
  for package in "$@"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || missing="$missing $package"
  done
  [ -n "$missing" ] || return 0
  echo "installing:$missing" >&2
  if [ "$(id -u)" -eq 0 ]; then sudo=; else sudo=sudo; fi
  $sudo env DEBIAN_FRONTEND=noninteractive apt-get update -q
  # shellcheck disable=SC2086 # the package list is split on purpose
  $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $missing
}
