# What becomes of a machine on which the package is installed, used, upgraded, removed and purged. The tests
# are the chapters of one story, and each relies on those before it.
bats_require_minimum_version 1.5.0

setup_file() {
    load Machine
    machine_make install procps
    machine_boot install
    inside install apt-get update -q
    # The package lies where README has it built.
    inside install mkdir -p /kennly/build
    inside install ln -s /packages /kennly/build/packages
}

teardown_file() {
    load Machine
    machine_end install
}

setup() {
    load Machine
    load Readme
}

# ---- what the chapters say

# here <command>...: runs it in the machine.
here() {
    inside install "$@"
}

# job <name> <check command> <remedy command>: an element of a configuration.
job() {
    echo "<job name='$1' enabled='true'>
        <check type='CheckCommandResult' delay='1'><param value=\"$2\"/></check>
        <remedy type='Execute'><param value=\"$3\"/></remedy>
    </job>"
}

# configure <elements>: puts a configuration in force, as a whole.
configure() {
    echo "<kennly>$1</kennly>" | here sh -c "cat >$config/kennly.xml.new && mv $config/kennly.xml.new $config/kennly.xml"
}

# exchange <elements>: the same within the second of the file that there is, which the daemon does not notice.
exchange() {
    echo "<kennly>$1</kennly>" | here sh -c "cat >$config/kennly.xml.new &&
        touch -r $config/kennly.xml $config/kennly.xml.new && mv $config/kennly.xml.new $config/kennly.xml"
}

# The number of processes of the daemon.
daemons() {
    here sh -c 'ls -l /proc/[0-9]*/exe 2>/dev/null' | grep -c ' /usr/sbin/kennly'
}
daemons_are() {
    [ "$(daemons)" -eq "$1" ]
}

main_process() {
    here systemctl show --property=MainPID --value "$1"
}

log_has() {
    here grep -F -- "$1" "$log"
}

log_has_times() {
    [ "$(log_has "$2" | wc -l)" -eq "$1" ]
}

# A version of the package that is newer by name.
newer_package() {
    here sh -c "rm -rf /newer && dpkg-deb --raw-extract /packages/$KENNLY_PACKAGE /newer &&
        sed -i 's/^Version: .*/&+newer$1/' /newer/DEBIAN/control && dpkg-deb --build /newer /newer$1.deb"
}

# All that bears the name of the program or of its directories, but for what dpkg notes of each package.
traces() {
    here find / -xdev -path /proc -prune -o -path /sys -prune -o -path /packages -prune -o \
        -path /kennly -prune -o -path '/newer*' -prune -o \( -name '*kennly*' -o -path '/opt/*' \) -print
}

# ---- installed

@test "the package installs with what it needs" {
    assert_equal "$(traces)" ""
    follow_readme install 2
    here dpkg --verify kennly
    here test -x /usr/sbin/rsyslogd
}

@test "it recommends what writes and rotates its log" {
    run here dpkg-query --show --showformat '${Recommends}' kennly
    assert_output --partial rsyslog
    assert_output --partial logrotate
}

@test "it brings kennlyctl with its page and completion, and examples for many machines" {
    run here dpkg --listfiles kennly
    for file in /usr/sbin/kennly /usr/bin/kennlyctl /usr/share/man/man8/kennlyctl.8.gz \
        /usr/share/bash-completion/completions/kennlyctl /usr/share/doc/kennly/examples/fleet/kennly-alerts.yml; do
        assert_line "$file"
        here test -s "$file"
    done
    assert_equal "$(here kennlyctl --version)" \
        "kennlyctl $(here dpkg-query --show --showformat '${Version}' kennly)"
}

@test "its directories are root's, and nobody else writes them" {
    for directory in "" /config /config/filetimes /heartbeats; do
        assert_equal "$(here stat -c '%U %G %a' $data$directory)" "root root 755"
    done
}

@test "it brings its samples, and no configuration into force" {
    for name in kennly dogdog; do
        here cmp "$config/$name.xml.sample" "/usr/share/kennly/$name.xml.sample"
        assert_equal "$(here stat -c '%U %G %a' "$config/$name.xml.sample")" "root root 644"
        run ! here test -e "$config/$name.xml"
    done
}

@test "it neither enables nor starts anything" {
    for unit in kennly kennly-watcher; do
        run here systemctl is-enabled "$unit"
        assert_output disabled
        run here systemctl is-active "$unit"
        assert_output inactive
    done
    assert_equal "$(daemons)" 0
}

@test "the first boot of an image that has it does not enable it either" {
    here systemctl preset kennly kennly-watcher
    run here systemctl is-enabled kennly kennly-watcher
    assert_output "disabled
disabled"
}

@test "systemd has nothing to say about its units, and knows all the restrictions that are proposed" {
    local proposed=/usr/share/doc/kennly/examples/hardening.conf units=/tmp/units
    run ! here grep '^[A-Z][A-Za-z]*=' "$proposed"
    for unit in kennly kennly-watcher; do
        here mkdir -p "$units/$unit.service.d"
        here cp "/lib/systemd/system/$unit.service" "$units"
        here sh -c "sed 's/^#\([A-Z][A-Za-z]*=\)/\1/' $proposed >$units/$unit.service.d/hardening.conf"
    done
    run here grep -c '^[A-Z][A-Za-z]*=' "$units/kennly.service.d/hardening.conf"
    assert_output 25

    run here env SYSTEMD_UNIT_PATH="$units:" systemd-analyze verify --man=no kennly.service kennly-watcher.service

    assert_success
    assert_output ""
    here rm -r "$units"
}

@test "its units limit neither threads nor lines, never give up, and end nothing but the daemon" {
    for unit in kennly kennly-watcher; do
        run here systemctl show --property=KillMode,LogRateLimitIntervalUSec,OOMPolicy,RequiresMountsFor,Restart \
            --property=RestartUSec,StartLimitIntervalUSec,TasksMax,TimeoutStopUSec,Type "$unit"
        assert_equal "$(sort <<<"$output")" "KillMode=process
LogRateLimitIntervalUSec=0
OOMPolicy=continue
RequiresMountsFor=/opt/qrv/data/kennly
Restart=always
RestartUSec=5s
StartLimitIntervalUSec=0
TasksMax=infinity
TimeoutStopUSec=20s
Type=exec"
        run here systemctl show --property=After --value "$unit"
        assert_output --partial network.target
    done
}

# ---- started

@test "without a configuration a start fails and says why, until there is one" {
    run ! here systemctl start kennly
    run here journalctl --unit kennly --output cat
    assert_line "$config/kennly.xml is missing: see kennly.xml(5)"
    run ! here systemctl is-active kennly
    follow_readme install 3
    eventually 30 here systemctl is-active kennly
    here systemctl stop kennly
    run here systemctl is-enabled kennly
    assert_output disabled
}

@test "a job that fails is repaired, and the log file tells of it" {
    follow_readme install 4
    here systemctl is-active cron
    run ! log_has "check failed"

    see_readme_repair install

    run here systemctl is-enabled kennly
    assert_output enabled
}

@test "nobody but root and the group adm reads the log file" {
    assert_equal "$(here stat -c '%U %G %a' "$log")" "root adm 640"
}

@test "errors and the lines of restart-tree are in the log file too, and others of the facility are not" {
    configure "<job name='broken' enabled='true'/>"
    eventually 30 log_has "no remedy defined in job: broken"
    run ! here /usr/libexec/kennly/restart-tree nonsense /usr/sbin/kennly
    eventually 10 log_has "restart-tree: there is no tree nonsense"
    here logger --tag another --priority local4.err "from another program"
    here logger --tag kennly --priority local4.debug "after it"
    eventually 10 log_has "after it"
    run ! log_has "from another program"
}

@test "the journal has the same lines" {
    run here journalctl --identifier kennly --facility local4 --priority err --output cat
    assert_line --partial "no remedy defined in job: broken"
    refute_line --partial "check failed - running remedy:"
    run here journalctl --identifier kennly --facility local4 --output cat
    assert_line --partial "cron check failed - running remedy: timeout 60 systemctl restart cron"
}

@test "a reload has the file loaded anew, and ends nothing" {
    local process
    process=$(main_process kennly)
    configure "<job name='before' enabled='false'/>"
    eventually 30 log_has "job not enabled - ignoring job: before"
    exchange "<job name='after' enabled='false'/>"

    here systemctl reload kennly

    eventually 30 log_has "job not enabled - ignoring job: after"
    assert_equal "$(main_process kennly)" "$process"
}

@test "a reload refuses a file with errors, says why, and leaves alone what runs" {
    local process
    process=$(main_process kennly)
    configure "<job name='good' enabled='false'/>"
    eventually 30 log_has "job not enabled - ignoring job: good"
    exchange "<job>"

    run ! here systemctl reload kennly

    run here journalctl --unit kennly --output cat
    assert_line --partial "$config/kennly.xml:1:14: error: [load-fails]"
    assert_line "kennlyctl: refused; $config/kennly.xml stays as it is"
    run ! log_has "config file failed to load"
    assert_equal "$(here systemctl is-active kennly)" active
    assert_equal "$(main_process kennly)" "$process"
}

@test "a reload that is not over within a minute fails, and happens all the same" {
    configure "$(job hangs 'sleep 4323' true)"
    eventually 30 here pgrep -x -f 'sleep 4323'
    exchange "$(job after 'touch /run/taken-up' true)"

    run ! here systemctl reload kennly

    run here journalctl --unit kennly --output cat
    assert_line --partial "kennlyctl: the daemon has not taken it up within 60 s"
    run ! here test -e /run/taken-up
    here pkill -x -f 'sleep 4323'
    eventually 30 here test -e /run/taken-up
}

@test "a start tells the journal what is worth knowing of the file, and is one all the same" {
    configure "<job name='incomplete' enabled='true'/>
        <job name='hasty' enabled='true'><check type='CheckCommandResult'><param value='true'/></check>
            <remedy type='Execute'><param value='true'/></remedy></job>"

    here systemctl restart kennly

    assert_equal "$(here systemctl is-active kennly)" active
    run here journalctl --unit kennly --output cat
    assert_line --partial "error: [no-remedy]"
    assert_line --partial "warning: [no-delay]"
}

@test "the watcher is started, asked for its configuration and reloaded in the same way" {
    local process
    run ! here systemctl start kennly-watcher
    run here journalctl --unit kennly-watcher --output cat
    assert_line "$config/dogdog.xml is missing: see kennly.xml(5)"
    here sh -c "echo \"<kennly><job name='watcher' enabled='false'/></kennly>\" >$config/dogdog.xml"
    eventually 30 log_has "job not enabled - ignoring job: watcher"
    process=$(main_process kennly-watcher)
    assert_equal "$(here sh -c "tr '\\0' ' ' </proc/$process/cmdline")" "/usr/sbin/kennly -f -W "

    here systemctl reload kennly-watcher

    eventually 30 log_has_times 2 "job not enabled - ignoring job: watcher"
    assert_equal "$(main_process kennly-watcher)" "$process"
    here systemctl stop kennly-watcher
}

@test "commands find the tools of an administrator, and root's privileges" {
    configure "$(job place 'false' "sh -c 'command -v start-stop-daemon >/root/tool; touch /tmp/seen-by-kennly; cat /proc/self/status >/root/status.new; mv /root/status.new /root/status'")"
    eventually 30 here grep -x 'CapBnd:.*' /root/status
    here grep -x '.*/sbin/start-stop-daemon' /root/tool
    # Nothing is taken from what a service of this machine may have.
    assert_equal "$(here sed -n 's/^CapBnd:\t//p' /root/status)" "$(here sed -n 's/^CapBnd:\t//p' /proc/1/status)"
    assert_equal "$(here sed -n 's/^NoNewPrivs:\t//p' /root/status)" 0
    assert_equal "$(here sed -n 's/^Seccomp:\t//p' /root/status)" "$(here sed -n 's/^Seccomp:\t//p' /proc/1/status)"
    here test -e /tmp/seen-by-kennly
}

@test "the daemon comes back when it is killed, and when it ends by itself" {
    local process
    process=$(main_process kennly)
    here kill -KILL "$process"
    eventually 30 here sh -c "systemctl is-active kennly && [ \$(systemctl show -P MainPID kennly) != $process ]"

    process=$(main_process kennly)
    here sh -c "echo '<kennly maxloaderrors=\"-1\"/>' >$config/kennly.xml" # ends it with status 0
    eventually 30 log_has "watchdog closing down as there have been too many load config errors"
    configure ""
    eventually 30 here sh -c "systemctl is-active kennly && [ \$(systemctl show -P MainPID kennly) != $process ]"
}

@test "remedies and checks go on when the daemon is stopped, which takes seconds" {
    configure "$(job slow '! test -e /run/slow' "sh -c 'rm /run/slow; exec sleep 4321'")"
    here touch /run/slow
    eventually 30 here pgrep -x -f 'sleep 4321'
    configure "$(job long 'sleep 4322' true)"
    eventually 30 here pgrep -x -f 'sleep 4322'

    here timeout 10 systemctl stop kennly

    assert_equal "$(daemons)" 0
    here pkill -x -f 'sleep 4321'
    here pkill -x -f 'sleep 4322'
    here systemctl start kennly
}

@test "the log file is rotated, and the daemon goes on writing" {
    local process
    process=$(main_process kennly)
    here logrotate --force /etc/logrotate.d/kennly
    here test -s "$log.1"
    configure "<job name='rotated' enabled='false'/>"
    eventually 30 log_has "job not enabled - ignoring job: rotated"
    assert_equal "$(main_process kennly)" "$process"
}

# ---- upgraded

@test "an upgrade restarts what runs, and changes no configuration" {
    local before process
    here sh -c "echo '# mine' >>/etc/rsyslog.d/kennly.conf"
    configure "<job name='mine' enabled='false'/>"
    here sh -c "printf abcd >$config/filetimes/record"
    before=$(here md5sum "$config/kennly.xml" /etc/rsyslog.d/kennly.conf "$config/filetimes/record")
    process=$(main_process kennly)
    newer_package 1

    run here apt-get install -q -y /newer1.deb

    echo "$output"
    assert_success
    refute_output --partial "previous version"
    assert_equal "$(here md5sum "$config/kennly.xml" /etc/rsyslog.d/kennly.conf "$config/filetimes/record")" "$before"
    here systemctl is-active kennly
    refute [ "$(main_process kennly)" = "$process" ]
    run here systemctl is-active kennly-watcher
    assert_output inactive
    assert_equal "$(here readlink "/proc/$(main_process kennly)/exe")" /usr/sbin/kennly
}

@test "an upgrade tells of trees that were started by hand, and leaves them alone" {
    here systemctl stop kennly
    here cp "$config/kennly.xml" "$config/dogdog.xml"
    here /usr/sbin/kennly -w
    eventually 30 daemons_are 4
    newer_package 2

    run here apt-get install -q -y /newer2.deb

    echo "$output"
    assert_success
    assert_output --regexp 'kennly: these processes still run the previous version; .*: [0-9]+ [0-9]+ [0-9]+ [0-9]+ '
    assert_equal "$(daemons)" 4
    run here systemctl is-active kennly
    assert_output inactive
}

# ---- removed

@test "a removal in another root, or that another system could mean, ends nothing here" {
    here mkdir /root-of-its-own
    here sh -c 'cp -ax /bin /etc /lib* /opt /sbin /usr /var /root-of-its-own &&
        cd /root-of-its-own && mkdir dev proc run tmp && mount --bind /proc proc && mount --bind /dev dev'
    local before
    before=$(daemons)

    here chroot /root-of-its-own dpkg --remove kennly

    assert_equal "$(daemons)" "$before"
    here umount /root-of-its-own/proc /root-of-its-own/dev
    here rm -r --one-file-system /root-of-its-own
}

# Those of the tests before run the previous version.
@test "a removal ends all daemons and restarts, and keeps configuration, records and log" {
    daemons_are 4
    here systemctl start kennly
    run here /usr/libexec/kennly/processes daemons
    assert_equal "$(grep -cx '[0-9]* replaced' <<<"$output")" 4
    assert_equal "${#lines[@]}" 4 # that of the unit is not among them
    # A restart that waits for a child to end. (Beside the unit there can be none of the main tree.)
    here sh -c 'kill -STOP $(pgrep -x -f "/usr/sbin/kennly -w -W -Z"); touch -d "1 hour ago" '$heartbeats'/watcherchild'
    here sh -c "/usr/libexec/kennly/restart-tree watcher /usr/sbin/kennly >/dev/null 2>&1 &"
    eventually 10 here sh -c '/usr/libexec/kennly/processes restarts | grep -x "[0-9]*"'
    here unshare --pid --mount --fork --mount-proc /usr/sbin/kennly -f 3>&- & # as a container would
    eventually 30 daemons_are 6

    here apt-get remove -q -y kennly

    run ! here pgrep -f /usr/libexec/kennly/restart-tree
    assert_equal "$(daemons)" 1
    here pkill -TERM -x -f '/usr/sbin/kennly -f'
    eventually 30 daemons_are 0
    run here systemctl show --property=ActiveState --value kennly
    assert_output inactive
    run traces
    echo "$output"
    refute_line --partial .sample
    refute_line --regexp '^/usr/|^/lib/'
    assert_line "$config/kennly.xml"
    assert_line "$config/dogdog.xml"
    assert_line "$config/filetimes/record"
    assert_line "$log"
    assert_line "$log.1"
    for heartbeat in parent watcherparent watcherchild; do
        refute_line "$heartbeats/$heartbeat"
    done
    run ! here systemctl start kennly
    here rm /newer1.deb /newer2.deb
    here test -d /opt
}

@test "an installation after that finds what was there, and is enabled as it was" {
    here apt-get install -q -y "/packages/$KENNLY_PACKAGE"

    run here cat "$config/kennly.xml"
    assert_output --partial mine
    here grep -x '# mine' /etc/rsyslog.d/kennly.conf
    run here systemctl is-enabled kennly
    assert_output enabled
    here systemctl start kennly
}

@test "a removal that fails has enabled units started again" {
    here systemctl stop kennly
    here /var/lib/dpkg/info/kennly.postinst abort-remove
    here systemctl is-active kennly
    run here systemctl is-active kennly-watcher
    assert_output inactive
}

# ---- purged

@test "a purge leaves nothing behind, and rsyslog at work without its rule" {
    local rsyslog
    rsyslog=$(main_process rsyslog)
    here touch "$log-20261122" # as logrotate names them by dateext

    here apt-get purge -q -y kennly

    assert_equal "$(daemons)" 0
    assert_equal "$(traces)" ""
    eventually 30 here systemctl is-active rsyslog
    refute [ "$(main_process rsyslog)" = "$rsyslog" ]
    here logger --priority local4.err --tag kennly "after the end"
    eventually 10 here grep -F "after the end" /var/log/syslog
    run ! here test -e "$log"
    run here systemctl --failed --no-legend --plain
    refute_output --partial kennly
    here test -d /opt
}

@test "what others have put beside its directories stays, also where its own is a link" {
    here mkdir -p /opt/qrv/data/another /srv/kennly
    here ln -s /srv/kennly /opt/qrv/data/kennly
    here apt-get install -q -y "/packages/$KENNLY_PACKAGE"
    here touch "$config/kennly.xml"
    here test -e /srv/kennly/config/kennly.xml

    here apt-get purge -q -y kennly

    here test -d /opt/qrv/data/another
    run ! here test -e "$data"
    assert_equal "$(here find /srv/kennly)" /srv/kennly
}

@test "a purge leaves a file system of its own where it is, and nothing in it" {
    here mkdir -p "$data"
    here mount -t tmpfs none "$data"
    here apt-get install -q -y "/packages/$KENNLY_PACKAGE"
    here touch "$config/kennly.xml"

    here apt-get purge -q -y kennly

    assert_equal "$(here find "$data")" "$data"
    here umount "$data"
}
