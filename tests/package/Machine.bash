# Machines of their own for tests of the package: each is a Debian 12 in a directory, booted by its own systemd
# in namespaces and control groups of its own. Needs root. To be loaded by bats files.
#
# KENNLY_MACHINES: the directory where machines are kept; base/ in it is what all begin as.
# KENNLY_PACKAGES: the directory with the packages to be tested; machines see it as /packages.

# Where the package has its things.
data=/opt/qrv/data/kennly
config=$data/config
heartbeats=$data/heartbeats
log=/var/log/kennly.log

# shellcheck source=tests/support/Eventually.bash
. "$(dirname "${BASH_SOURCE[0]}")/../support/Eventually.bash"

if [ -n "${BATS_VERSION:-}" ]; then
    load /usr/lib/bats/bats-support/load
    load /usr/lib/bats/bats-assert/load
fi

# machine_make <name> [<package>...]: a fresh Debian with systemd and these packages.
machine_make() {
    local name=$1 root=$KENNLY_MACHINES/$1
    shift
    machine_end "$name" # what an interrupted test has left
    cp -a "$KENNLY_MACHINES/base/." "$root"
    mkdir "$root/packages"
    if [ $# -gt 0 ]; then
        (machine_nspawn "$root" --pipe --setenv=DEBIAN_FRONTEND=noninteractive \
            sh -c 'apt-get update -q && apt-get install -q -y --no-install-recommends "$@"' install "$@" </dev/null)
    fi
}

# machine_boot <name> [<option of systemd-nspawn>...]: boots a machine, and returns when it is up.
machine_boot() {
    local name=$1 root=$KENNLY_MACHINES/$1
    shift
    (machine_nspawn "$root" --boot --console=passive --bind-ro="$KENNLY_PACKAGES:/packages" "$@") \
        </dev/null >"$root.log" 2>&1 3>&- &
    echo $! >"$root.pid"
    eventually 60 machine_is_up "$name" || {
        cat "$root.log"
        return 1
    }
}

# machine_nspawn <root> <option of systemd-nspawn>...: becomes systemd-nspawn, in control groups of its own:
# machines would take each other's services for their own.
machine_nspawn() {
    local root=$1
    shift
    for group in $(machine_groups "$root"); do
        mkdir -p "$group"
        echo "$BASHPID" >"$group/cgroup.procs"
    done
    exec systemd-nspawn --quiet --register=no --keep-unit --directory="$root" "$@"
}

# machine_groups <root>: the control groups that a machine has to itself, one in each hierarchy that a systemd
# uses.
machine_groups() {
    local name line ours
    name=kennly-$(basename "$1")-$(stat -c %i "$1")
    findmnt --noheadings --list --types cgroup,cgroup2 --output TARGET,OPTIONS,FSTYPE | while read -r line; do
        case $line in
        *name=systemd*) ours=$(sed -n 's/^[0-9]*:name=systemd://p' /proc/self/cgroup) ;;
        *cgroup2) ours=$(sed -n 's/^0:://p' /proc/self/cgroup) ;;
        *) continue ;;
        esac
        echo "${line%% *}${ours%/}/$name"
    done
}

machine_is_up() {
    local state
    state=$(inside "$1" systemctl is-system-running)
    [ "$state" = running ] || [ "$state" = degraded ] || {
        echo "it is $state"
        return 1
    }
}

# machine_process <name>: the number of the machine's systemd-nspawn, while it runs.
machine_process() {
    local number
    number=$(cat "$KENNLY_MACHINES/$1.pid" 2>/dev/null) || return 1
    # The number may be another's by now.
    grep -qsz -- "^--directory=$KENNLY_MACHINES/$1\$" "/proc/$number/cmdline" || return 1
    echo "$number"
}

machine_is_down() {
    ! machine_process "$1"
}

# inside <name> <command> [<argument>...]: runs a command in a machine that has been booted. Its standard input,
# output and exit status are passed on.
inside() {
    local number first
    number=$(machine_process "$1") && first=$(pgrep --parent "$number") || {
        echo "the machine $1 does not run" >&2
        return 125
    }
    shift
    env --ignore-environment PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
        nsenter --target="$first" --mount --uts --ipc --net --pid --cgroup -- "$@"
}

# machine_end <name>: ends a machine, if it runs, and removes what was in it, if it is there.
machine_end() {
    local root=$KENNLY_MACHINES/$1 number
    if number=$(machine_process "$1"); then
        # With its first process end all others.
        pkill -KILL --parent "$number" || true # it may have none yet, or none any more
        eventually 30 machine_is_down "$1"
    fi
    if [ -d "$root" ]; then
        for group in $(machine_groups "$root"); do
            [ ! -d "$group" ] || find "$group" -depth -type d -exec rmdir {} +
        done
    fi
    rm -rf --one-file-system "$root" "$root.log" "$root.pid"
}

# show_log_of_failure <name>: for a teardown: prints the log of a machine if the test has failed.
show_log_of_failure() {
    [ -n "$BATS_TEST_COMPLETED" ] || inside "$1" cat "$log"
}
