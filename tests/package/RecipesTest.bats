bats_require_minimum_version 1.5.0

# Every recipe as it is shipped, at work on the service, the file system or the plugin that it is meant for: the
# jobs of all files in one configuration, with one more that keeps time. What is broken is the real thing.
# Those for two units have tests of their own, TwoUnitsTest.
#
# Recipes look every 30 seconds only, so many things are broken at once, and a test goes on with what the one
# before has left.

examples=/usr/share/doc/kennly/examples
plugins=/usr/lib/nagios/plugins
jobs="disk file-age http load process restart-service slow-remedy tcp-port web"

setup_file() {
    load Machine
    machine_make recipes cron libtinyxml2.6.2v5 logrotate monitoring-plugins-basic nginx-light \
        openssh-server procps rsyslog
    machine_boot recipes --private-network
    inside recipes apt-get install -q -y --no-install-recommends "/packages/$KENNLY_PACKAGE"
    give_var_a_small_file_system
    give_backup_a_slow_file_system
    inside recipes systemctl start logrotate.service # its status is there only once it has run
    configure
    for job in $jobs; do
        # The load may be that of whatever ran before, and its average over 15 minutes takes as long to go down.
        eventually 1200 passes "$job"
    done
    inside recipes systemctl start kennly
}

teardown_file() {
    load Machine
    machine_end recipes
}

setup() {
    load Machine
}

teardown() {
    show_log_of_failure recipes
}

give_var_a_small_file_system() {
    inside recipes sh -c 'mkdir /small && mount -t tmpfs -o size=512M,mode=755 small /small &&
        cp -a /var/. /small && mount --bind /small /var && umount /small &&
        systemctl restart systemd-journald rsyslog'
}

# Mounting it takes until /run/may-mount exists, and leaves a process behind, as many file systems do.
give_backup_a_slow_file_system() {
    inside recipes sh -c 'cat >/sbin/mount.slow && chmod +x /sbin/mount.slow' <<'END'
#!/bin/sh
echo started >>/run/mounts
until [ -e /run/may-mount ]; do sleep 0.2; done
sleep 1000 &
mount -t tmpfs none "$2"
END
    inside recipes sh -c 'mkdir /srv/backup && echo "none /srv/backup slow defaults 0 0" >>/etc/fstab &&
        touch /run/may-mount && mount /srv/backup && rm /run/may-mount /run/mounts'
}

# The job elements of all recipes, and the clock.
configure() {
    {
        echo '<kennly maxloaderrors="10">'
        echo '<job name="clock" enabled="true">'
        echo '<check type="CheckCommandResult" delay="10"><param value="false"/></check>'
        echo '<remedy type="Execute"><param value="true"/></remedy></job>'
        inside recipes sh -c "cd $examples && for file in *.xml; do
            case \$file in two-units-*) ;; *) sed -n '/<job /,/<\/job>/p' \$file ;; esac
        done"
        echo '</kennly>'
    } >"$BATS_FILE_TMPDIR/kennly.xml"
    assert_equal "$(xmllint --xpath '//job[@name != "clock"]/@name' "$BATS_FILE_TMPDIR/kennly.xml" |
        cut -d '"' -f 2 | sort | xargs)" "$jobs"
    inside recipes sh -c "cat >$config/kennly.xml" <"$BATS_FILE_TMPDIR/kennly.xml"
}

command_of() { # check|remedy JOB
    xmllint --xpath "string(//job[@name='$2']/$1/param/@value)" "$BATS_FILE_TMPDIR/kennly.xml"
}

# Whether a job's check passes when run by hand.
passes() {
    inside recipes sh -c "$(command_of check "$1")" </dev/null
}

fails() {
    ! passes "$1"
}

# How often a job's remedy has been started.
remedies() {
    inside recipes cat "$log" | grep -cF ":  : $1 check failed - running remedy: $(command_of remedy "$1")" || true
}

# more_remedies <job> <n>: whether there are more than n.
more_remedies() {
    [ "$(remedies "$1")" -gt "$2" ] || {
        echo "the remedy of $1 has been started $2 times"
        return 1
    }
}

all_remedies() {
    local job
    for job in $jobs; do
        echo "$job $(remedies "$job")"
    done
}

# Returns when each job has been looked at since the clock had ticked $1 times: the five ticks that follow take 40
# seconds at least. A look follows the other in 30, and a remedy its check in 5.
whole_cycle_since() {
    eventually 200 more_remedies clock $(($1 + 4))
}

# Whether no remedy of a recipe has been started lately: its pause after a failed check is 15 seconds at most.
quiet() {
    local lines
    lines=$(inside recipes journalctl --quiet --no-pager --identifier=kennly --since=-20s) || return 1
    ! grep 'check failed - running remedy' <<<"$lines" | grep -v ': clock check'
}

hold() {
    inside recipes touch "/run/kennly.$1.maintenance"
}

release() {
    inside recipes rm "/run/kennly.$1.maintenance"
}

leave_of_var() { # PERCENT
    inside recipes sh -c 'set -- $(df --output=size,avail -B 1 /var | tail -n 1) "$1"
        fallocate -l $(($2 - $1 / 100 * $3)) /var/cache/apt/archives/big_1_all.deb' fill "$1"
}

# Thrice as many processes as are too many. They wait in the kernel without using a processor, for the end of a
# child that shares their memory; that counts as load.
drive_load_up() {
    inside recipes setsid perl -e '
        use Config;
        my $vfork = $Config{ptrsize} == 8 ? 58 : 190;
        open(my $file, ">", "/run/load.pid"); print $file $$; close($file);
        for (1 .. 30 * `getconf _NPROCESSORS_CONF`) { next if fork; syscall($vfork); sleep 600; exit }
        sleep 600' </dev/null >/dev/null 2>&1 3>&- &
    eventually 10 inside recipes test -s /run/load.pid
}

let_load_go() {
    inside recipes pkill -KILL -g "$(inside recipes cat /run/load.pid)"
}

# replace <plugin>: puts standard input into its place.
replace() {
    inside recipes sh -c 'mv "$0" "$0.real" && cat >"$0" && chmod +x "$0"' "$plugins/$1"
}

put_back() {
    inside recipes mv "$plugins/$1.real" "$plugins/$1"
}

@test "while the machine is in maintenance, nothing is done, whatever breaks" {
    inside recipes touch /run/kennly.maintenance
    inside recipes systemctl stop ssh cron nginx
    inside recipes umount /srv/backup
    inside recipes touch -d '3 days ago' /var/lib/logrotate/status
    leave_of_var 3
    for job in disk file-age http process restart-service slow-remedy tcp-port web; do
        run passes "$job"
        assert_failure
    done

    whole_cycle_since "$(remedies clock)"

    run all_remedies
    refute_line --regexp ' [1-9]'
}

@test "each remedy runs once maintenance is over, and repairs what has broken" {
    for job in restart-service http; do # others repair the same
        hold "$job"
    done
    inside recipes touch /run/nologin # holds back that of web
    remedies clock >"$BATS_FILE_TMPDIR/held"
    drive_load_up
    eventually 120 fails load
    inside recipes rm /run/kennly.maintenance

    for job in disk file-age load process slow-remedy tcp-port; do
        eventually 120 more_remedies "$job" 0
    done
    let_load_go
    for job in disk file-age process tcp-port; do
        eventually 60 passes "$job"
    done
    run inside recipes systemctl is-active ssh cron
    assert_output $'active\nactive'
    run inside recipes find /var/lib/logrotate/status -mmin -5
    assert_output /var/lib/logrotate/status
    run inside recipes find /var/cache/apt/archives -name '*.deb'
    assert_output ''
    # Who makes the load, beside the line about the remedy.
    inside recipes cat "$log" | grep -E 'kennly: D[^ ]* .* root +perl$'
}

@test "a slow remedy is not started again while it runs" {
    eventually 120 more_remedies slow-remedy 1

    assert_equal "$(inside recipes cat /run/mounts)" started
    run passes slow-remedy
    assert_failure
    inside recipes touch /run/may-mount
    eventually 10 passes slow-remedy

    # What it leaves behind does not keep it from ever being started again.
    run inside recipes pgrep -x sleep
    assert_success
    eventually 10 inside recipes flock -n /run/lock/kennly.slow-remedy true
}

@test "the maintenance of one job holds back its remedy alone" {
    for job in http web; do
        run passes "$job"
        assert_failure
    done

    whole_cycle_since "$(cat "$BATS_FILE_TMPDIR/held")"

    for job in http web restart-service; do
        assert_equal "$(remedies "$job")" 0
    done
    inside recipes rm /run/nologin
    eventually 120 more_remedies web 0
    eventually 60 passes web
    assert_equal "$(remedies http)" 0
    eventually 60 passes http
    release http
    release restart-service
}

# The jobs that the next tests are about.
broken="file-age http load restart-service tcp-port"

@test "a plugin that is missing, hung or misused leads to the remedy, and so does a service that hangs" {
    hold process # it repairs the same as restart-service
    for job in $broken; do
        eventually 400 passes "$job" # a load average takes its time to go down
    done
    eventually 120 quiet
    for job in $broken; do
        remedies "$job" >"$BATS_FILE_TMPDIR/$job"
    done
    inside recipes mv "$plugins/check_tcp" "$plugins/check_tcp.real"
    replace check_file_age <<'END'
#!/bin/sh
trap '' TERM
while :; do sleep 1; done
END
    replace check_load <<END
#!/bin/sh
exec $plugins/check_load.real --no-such-option
END
    run inside recipes "$plugins/check_load"
    assert_equal "$status" 3
    inside recipes systemctl kill --signal=STOP nginx
    run inside recipes systemctl is-active nginx
    assert_output active
    inside recipes systemctl stop cron

    for job in $broken; do
        eventually 150 more_remedies "$job" "$(cat "$BATS_FILE_TMPDIR/$job")"
    done

    for plugin in check_tcp check_file_age check_load; do
        put_back "$plugin"
    done
    for job in $broken; do
        eventually 60 passes "$job"
    done
    release process
}

@test "a web server is restarted when a page is gone" {
    local before
    eventually 120 quiet
    before=$(remedies http)
    inside recipes mv /var/www/html/index.nginx-debian.html /var/www/html/away
    run inside recipes "$plugins/check_http" -H 127.0.0.1
    assert_equal "$status" 1 # without -e, no page is a warning
    eventually 120 more_remedies http "$before"
    inside recipes mv /var/www/html/away /var/www/html/index.nginx-debian.html
    eventually 60 passes http
}

@test "a warning, and all that has been repaired, are left alone" {
    for job in $jobs; do
        eventually 60 passes "$job"
    done
    leave_of_var 7
    run inside recipes "$plugins/check_disk" -w 10% -c 5% -p /var
    assert_equal "$status" 1
    eventually 120 quiet
    all_remedies >"$BATS_TEST_TMPDIR/before"

    whole_cycle_since "$(remedies clock)"

    all_remedies >"$BATS_TEST_TMPDIR/after"
    run diff "$BATS_TEST_TMPDIR/before" "$BATS_TEST_TMPDIR/after"
    assert_success
}
