# Shared by quickstart and check: says each step, installs what is missing. Sourced, not run.

# step TEXT: announces the next step, with the minutes and seconds since the start.
step() { printf '\n==> %d:%02d %s\n' $((SECONDS / 60)) $((SECONDS % 60)) "$*"; }

# fail TEXT: says what went wrong and what to do, and ends.
fail() {
    printf '\nerror: %s\n' "$*" >&2
    exit 1
}

# packages_in FILE...: the package names in the lists.
packages_in() { sed 's/#.*//' "$@" | awk 'NF { print $1 }'; }

# missing_packages FILE...: those of them that are not installed.
missing_packages() {
    local package
    for package in $(packages_in "$@"); do
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || echo "$package"
    done
}

# as_root COMMAND...: runs it as root, with sudo where needed.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"
    elif command -v sudo >/dev/null; then sudo "$@"
    else fail "\"$*\" needs root, and there is no sudo here. Run it as root, then start again."
    fi
}

# install_packages FILE...: installs what is missing of the lists, and says what that is.
install_packages() {
    local missing
    command -v apt-get >/dev/null ||
        fail "this script installs Debian packages. Elsewhere, install what these lists name: $*"
    missing=$(missing_packages "$@")
    [ -n "$missing" ] || return 0
    printf 'installing: %s\n' "$(echo $missing)"
    as_root apt-get update -qq || true # an old list of packages may well be good enough
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing >/dev/null ||
        fail "the packages above could not be installed. Install them by hand, then start again."
}

# install_postgres: the server's programs, without the system-wide server that Debian sets up with them.
install_postgres() {
    if ! dpkg-query -W postgresql-common >/dev/null 2>&1 && [ ! -e /etc/postgresql-common/createcluster.conf ]; then
        as_root mkdir -p /etc/postgresql-common
        echo 'create_main_cluster = false' | as_root tee /etc/postgresql-common/createcluster.conf >/dev/null
    fi
    install_packages scripts/packages.postgres
}
