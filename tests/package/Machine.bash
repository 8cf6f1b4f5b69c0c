# Machines of their own for tests of the package: each is a Debian 12 in a directory, booted by its own systemd
# in namespaces of its own. Needs root. To be loaded by bats files.
#
# KENNLY_MACHINES: the directory where machines are kept; base/ in it is what all begin as.
# KENNLY_PACKAGES: the directory with the packages to be tested; machines see it as /packages.

load /usr/lib/bats/bats-support/load
load /usr/lib/bats/bats-assert/load

# machine_make <name> [<package>...]: a fresh Debian with systemd and these packages.
machine_make() {
    local root=$KENNLY_MACHINES/$1
    shift
    rm -rf "$root"
    cp -a "$KENNLY_MACHINES/base/." "$root"
    mkdir "$root/packages"
    if [ $# -gt 0 ]; then
        systemd-nspawn --quiet --register=no --keep-unit --directory="$root" --pipe \
            --setenv=DEBIAN_FRONTEND=noninteractive \
            sh -c 'apt-get update -q && apt-get install -q -y --no-install-recommends "$@"' install "$@" </dev/null
    fi
}

# machine_boot <name> [<option of systemd-nspawn>...]: boots a machine, and returns when it is up.
machine_boot() {
    local root=$KENNLY_MACHINES/$1
    shift
    machine_cgroups "$root" | xargs mkdir -p
    (
        for cgroup in $(machine_cgroups "$root"); do
            echo "$BASHPID" >"$cgroup/cgroup.procs"
        done
        exec systemd-nspawn --quiet --register=no --keep-unit --directory="$root" --boot --console=passive \
            --bind-ro="$KENNLY_PACKAGES:/packages" "$@"
    ) </dev/null >"$root.log" 2>&1 3>&- &
    echo $! >"$root.pid"
    eventually 60 machine_is_up "$(basename "$root")" || {
        cat "$root.log"
        return 1
    }
}

# machine_cgroups <root>: the control groups that a machine has to itself, one in each hierarchy that a systemd
# uses: several machines would take each other's services for their own.
machine_cgroups() {
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

# inside <name> <command> [<argument>...]: runs a command in a machine that has been booted. Its standard input,
# output and exit status are passed on.
inside() {
    local first
    first=$(machine_first_process "$1")
    shift
    env --ignore-environment PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
        nsenter --target="$first" --mount --uts --ipc --net --pid --cgroup -- "$@"
}

# machine_end <name>: ends a machine, and removes what was in it.
machine_end() {
    local root=$KENNLY_MACHINES/$1
    if [ -e "$root.pid" ]; then
        # With its first process end all others; it may have ended before.
        kill -KILL "$(machine_first_process "$1")" || true
        eventually 30 machine_is_down "$1"
        for cgroup in $(machine_cgroups "$root"); do
            find "$cgroup" -depth -type d -exec rmdir {} +
        done
        rm "$root.pid"
    fi
    rm -rf --one-file-system "$root" "$root.log"
}

machine_first_process() {
    pgrep --parent "$(cat "$KENNLY_MACHINES/$1.pid")"
}

machine_is_down() {
    ! [ -e "/proc/$(cat "$KENNLY_MACHINES/$1.pid")" ]
}

# eventually <seconds> <command> [<argument>...]: repeats a command until it succeeds. When time is up before,
# prints the output of its last try, and fails.
eventually() {
    local limit=$((SECONDS + $1)) output
    shift
    until output=$("$@" 2>&1 3>&-); do
        if [ "$SECONDS" -ge "$limit" ]; then
            echo "not within its time: $*"
            echo "$output"
            return 1
        fi
        sleep 0.2
    done
}
