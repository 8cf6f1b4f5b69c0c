# For tests that wait. To be read by bats files and what they share.

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
