# What the tests of docs/fleet.md share. To be loaded by bats files.

bats_require_minimum_version 1.5.0
load /usr/lib/bats/bats-support/load
load /usr/lib/bats/bats-assert/load
load ../support/Eventually

project=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
fleet=$project/fleet

# place_make: a place in which this user is root: with processes, mounts and a network of its own, and the hosts
# logs.example.com and localhost in it. It lasts until place_end, which a teardown has to call.
place_make() {
    unshare --user --map-root-user --mount --net --pid --fork --kill-child --mount-proc \
        sh -c 'echo here; exec sleep infinity' >"$BATS_FILE_TMPDIR/place" 2>&1 3>&- &
    echo $! >"$BATS_FILE_TMPDIR/place.pid"
    disown # nobody is to be told of its end
    eventually 30 grep -qx here "$BATS_FILE_TMPDIR/place" || {
        cat "$BATS_FILE_TMPDIR/place"
        return 1
    }
    echo '127.0.0.1 localhost logs.example.com' >"$BATS_FILE_TMPDIR/hosts"
    place mount --bind "$BATS_FILE_TMPDIR/hosts" /etc/hosts
    place ip link set lo up
}

place_end() {
    [ -e "$BATS_FILE_TMPDIR/place.pid" ] || return 0
    kill -KILL "$(cat "$BATS_FILE_TMPDIR/place.pid")"
    rm "$BATS_FILE_TMPDIR/place.pid"
}

# place <command> [<argument>...]: runs a command there.
place() {
    local first
    first=$(pgrep --parent "$(cat "$BATS_FILE_TMPDIR/place.pid")") || {
        echo "the place is no more" >&2
        return 125
    }
    nsenter --target "$first" --user --preserve-credentials --mount --net --pid -- "$@" 3>&-
}
