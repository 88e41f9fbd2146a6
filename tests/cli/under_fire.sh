#!/usr/bin/env bash
# qos-host while its surroundings fail: killed, its database removed, replaced, damaged, locked or read-only, disks full.
# Each case wants the message that names file and cause, the exit code, a capture that reads back as whole records, and
# that the work goes on when the cause is gone.
#
#   under_fire.sh PROGRAM_DIR CASE [EMULATOR]      one of the functions below, killed_by_signals to interfaces_come_and_go
set -uo pipefail
programs=$(cd "$1" && pwd)
case_name=$2
emulator=${3:-}
PATH=$programs:$PATH
unset NIVEX_QOS_DB NIVEX_QOS_PLUGIN
export LC_ALL=C

scratch=$(mktemp -d)
mounted=
trap 'kill -KILL $(jobs -p) 2>/dev/null; wait 2>/dev/null; [ -z "$mounted" ] || umount "$mounted"; rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1

failures=0
complain() {
    echo "under_fire: $case_name: $*" >&2
    failures=$((failures + 1))
}
# Waits for a command to succeed, up to half a minute and more on a busy machine.
await() {
    for _ in {1..600}; do
        "$@" && return 0
        sleep 0.05
    done
    complain "waited in vain for: $*; the messages: $(head -n 5 ./*.err)"
    exit 1
}
says() { grep -q -- "$2" "$1.err"; }
# How many samples of so many records NAME has shown.
passes() { grep -c "records $2," "$1.out"; }
more_passes() { [ "$(passes "$1" "$2")" -gt "$3" ]; } # NAME RECORDS NUMBER
goes_on() { await says "$1" 'goes on after'; }

sampler() { # NAME SPAN OPTIONS...
    : >"$1.out"
    qos-host sample queue-statistics --db q.db --output none --every "${@:2}" >"$1.out" 2>>"$1.err" 3>&- &
    eval "$1_pid=$!"
    await more_passes "$1" '[0-9]*' 1
}
feed() { # NAME OPTIONS...
    qos-host feed sim --every 20ms "${@:2}" >"$1.out" 2>>"$1.err" 3>&- &
    eval "$1_pid=$!"
}
# Ends NAME with a signal and checks its exit code and the time that it takes, which is a second and more on a busy machine.
stop() { # NAME CODES [SIGNAL]
    local pid=$1_pid code=0 begin=${EPOCHREALTIME/./}
    kill -s "${3:-TERM}" "${!pid}" 2>/dev/null || complain "$1 has ended by itself: $(cat "$1.err")"
    wait "${!pid}" 2>/dev/null || code=$?
    [ $((${EPOCHREALTIME/./} - begin)) -lt 3000000 ] || complain "$1 takes more than 3 s to end"
    [[ $code =~ ^($2)$ ]] || complain "$1 ends with $code, not $2: $(cat "$1.err")"
}
# Messages of NAME that match a pattern, however often the cause was met.
told() { # NAME PATTERN TIMES
    local times
    times=$(grep -c -- "$2" "$1.err")
    [ "$times" -eq "$3" ] || complain "$1 says '$2' $times times, not $3: $(cat "$1.err")"
}
batches() { grep -c '^batch ' decoded; }
# A capture is whole, or whole up to a last record that is named as cut off.
reads_back() { # FILE whole|cut [CODE]
    local code=0
    qos-host decode "$1" --output none >decoded 2>decode.err || code=$?
    [ -s decoded ] || complain "$1 has no batch"
    case $2 in
    cut) [ $code -eq 1 ] && says decode 'the record is cut off: ' ;;
    *) [ $code -eq 0 ] && [ ! -s decode.err ] ;;
    esac || complain "$1 is not $2, exit code $code: $(cat decode.err)"
}
sound() {
    [ "$(sqlite3 "$1" 'PRAGMA integrity_check' 2>&1)" = ok ] || complain "$1 is damaged"
    rm -f junk
    [ -z "$(ls "$1"-* 2>/dev/null)" ] || complain "left behind: $(ls "$1"-*)"
}
fresh() { # a database of 128 queues, nobody has it open
    rm -f q.db* ./*.cap
    qos-host feed sim --db q.db --count 1 || complain "no database"
    cp q.db good.db
}

killed_by_signals() {
    local signal code form
    for signal in KILL TERM INT HUP; do
        code=$([ $signal = KILL ] && echo 137 || echo 0)
        fresh
        feed writer --db q.db
        sampler gpb 1ms --capture gpb.cap
        sampler json 1ms --encoding json --capture json.cap
        await more_passes json 128 20
        for each in gpb json writer; do
            stop $each "$code" $signal
        done
        for form in gpb json; do
            # A write that the signal met halfway may cut the last record off; nothing else may be wrong.
            if [ $signal = KILL ] && ! qos-host decode $form.cap --output none >/dev/null 2>&1; then
                reads_back $form.cap cut
            else
                reads_back $form.cap whole
            fi
            [ $signal = KILL ] || [ "$(batches)" -eq "$(passes $form 128)" ] ||
                complain "$form.cap has $(batches) batches, $(passes $form 128) were sent"
        done
        qos-host sample queue-statistics --db q.db --output none >after || complain "no sample after SIG$signal"
        sound q.db
    done
}

# Whatever a command is doing, a signal ends it.
blocked() {
    begin() { # NAME COMMAND...
        "${@:2}" 2>"$1.err" &
        eval "$1_pid=$!"
        sleep 0.5
    }
    fresh
    qos-host sample queue-statistics --db q.db --output none --capture q.cap >q.out
    mkfifo full silent closed hold
    exec 3<>full 4<>silent
    head -c 65536 /dev/zero >&3
    begin writing qos-host decode q.cap --output hex >full
    begin sampling qos-host sample queue-statistics --db q.db --every 1ms >full
    begin opening qos-host decode closed
    begin reading qos-host decode silent
    begin large qos-host feed sim --slots 64 --ports 1024 --db large.db
    stop writing 143
    stop sampling 130 INT
    stop opening 129 HUP
    stop reading 143
    stop large '0|143'
    qos-host sample queue-statistics --db large.db --output none >q.out 2>large.err
    [ $? -le 1 ] || complain "the database of a feed that was ended: $(cat large.err)"

    # The others wait for the database.
    sqlite3 q.db <hold >locked.out 2>&1 &
    exec 5>hold
    echo 'PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE; DELETE FROM queue_stat; SELECT "held";' >&5
    await grep -q held locked.out
    begin waiting qos-host sample queue-statistics --db q.db --every 1ms >q.out
    begin feeding qos-host feed sim --db q.db --every 1ms
    stop waiting '0|1|143'
    stop feeding '0|1|143'
    exec 5>&-

    # The demo leaves nothing, neither what it starts nor what it makes, even when nobody reads what it prints.
    mkdir tmp programs
    printf '#!/bin/sh\necho $$ >>children; exec sleep 99\n' >programs/ip
    chmod +x programs/ip
    for signal in 'TERM 143' 'INT 130' 'HUP 129'; do
        begin demo env TMPDIR=tmp PATH="programs:$PATH" qos-host demo >q.out
        stop demo "${signal#* }" "${signal% *}"
    done
    begin demo env TMPDIR=tmp qos-host demo >full
    stop demo 143
    for signal in 'TERM 143' 'INT 130' 'HUP 129'; do # between two rounds, its traffic on the way
        begin demo env TMPDIR=tmp qos-host demo --seconds 600 >q.out
        await grep -q '^second 1 of 600' q.out
        stop demo "${signal#* }" "${signal% *}"
    done
    [ -z "$(ls tmp)" ] || complain "the demo leaves $(ls tmp)"
    for child in $(cat children); do # none where there is no lab
        kill -0 "$child" 2>no.err && complain "the demo leaves a child"
    done

    begin ignoring nohup qos-host sample queue-statistics --db large.db --every 1h >q.out
    kill -HUP "$ignoring_pid"
    sleep 0.2
    stop ignoring '0|1'
}

removed() {
    fresh
    sampler reader 20ms
    mv q.db elsewhere
    await says reader "'q.db': no QoS database to read table queue_stat from: No such file or directory"
    mv elsewhere q.db
    goes_on reader
    stop reader 1
    told reader 'No such file' 1
    sound q.db
}

replaced() {
    fresh
    cp q.db other.db
    sqlite3 other.db 'DELETE FROM queue_stat WHERE rowid > 1'
    sampler reader 20ms
    mv other.db q.db
    await more_passes reader 1 2
    stop reader 0
    sound q.db
}

damaged() {
    local how
    fresh
    head -c 65536 /dev/urandom >junk
    sampler reader 20ms
    for how in 'mv junk q.db' 'cp good.db junk; truncate -s 8192 q.db' ': >q.db' \
        'head -c "$(stat -c %s good.db)" /dev/urandom >q.db'; do
        : >reader.err
        eval "$how"
        await says reader "'q.db': cannot read table queue_stat: \(file is not a database\|database disk image is malformed\|no such table: queue_stat\)"
        cat good.db >q.db
        goes_on reader
    done
    stop reader 1
    sound q.db
    # From the start, and the feed as well.
    echo 'no database' >junk.db
    cp junk.db before
    qos-host feed sim --db junk.db --count 1 2>feed.err && complain "feeds a text file"
    says feed "'junk.db': .*file is not a database" || complain "$(cat feed.err)"
    cmp -s junk.db before || complain "the feed has changed a file that is no database"
}

feed_loses_its_file() {
    local how
    fresh
    feed writer --db q.db
    sampler reader 3ms
    for how in 'rm q.db' 'rm q.db-wal' 'rm q.db-shm' 'cp good.db new.db; mv new.db q.db' 'rm q.db q.db-wal q.db-shm'; do
        : >writer.err
        eval "$how"
        goes_on writer
        told writer "q.db[a-z-]*' was removed or replaced while the database was open" 1
        await more_passes reader 128 "$(passes reader 128)"
    done
    for how in 1 2 3 4; do # a sampler that lays the log over it would make a database of it
        : >writer.err
        echo 'no database' >junk
        mv junk q.db
        await says writer "'q.db': .*: file is not a database"
        rm q.db
        goes_on writer
    done
    await more_passes reader 128 "$(passes reader 128)"
    stop writer 1
    kill -TERM "$reader_pid"
    wait "$reader_pid" # 0 or 1: it may have met the moment without a file
    [ $? -le 1 ] || complain "the reader does not end well"
    sound q.db
}

locked() {
    local mode
    fresh
    feed writer --db q.db
    sampler reader 20ms
    for mode in IMMEDIATE EXCLUSIVE; do
        : >writer.err
        # The shell's own wait, as the feed may be writing.
        { echo '.timeout 5000'; echo "BEGIN $mode; DELETE FROM queue_stat;"; await says writer 'is locked' >&2
          echo 'ROLLBACK;'; } | sqlite3 -bail q.db || complain "cannot lock the database"
        goes_on writer
        told writer "'q.db': cannot run 'BEGIN IMMEDIATE': database is locked" 1
    done
    stop reader 0 # readers of a WAL database go on meanwhile
    stop writer 1
    sound q.db

    # One that lets nobody in.
    mkfifo hold
    sqlite3 q.db <hold >locked.out 2>&1 &
    exec 3>hold
    echo 'PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE; DELETE FROM queue_stat WHERE rowid < 0; COMMIT; SELECT "held";' >&3
    await grep -q held locked.out
    sampler shut_out 100ms
    await says shut_out "'q.db': cannot read table queue_stat: database is locked"
    exec 3>&-
    goes_on shut_out
    stop shut_out 1
    sound q.db
}

# A file at its size limit fails as one on a full disk does.
limited_capture() {
    fresh
    (ulimit -f 40; exec qos-host sample queue-statistics --db q.db --output none --every 1ms --count 100 --capture q.cap) \
        >limit.out 2>limit.err
    [ $? -eq 1 ] || complain "exit code $? at the limit"
    says limit "cannot write the capture 'q.cap', which now ends in [0-9]* of a record's [0-9]* bytes: File too large" ||
        complain "$(cat limit.err)"
    reads_back q.cap cut
    [ "$(batches)" -ge "$(passes limit 128)" ] || complain "batches are missing in the capture"
}

full_disk() {
    mkdir -p disk
    if ! mount -t tmpfs -o size=300k none disk 2>mount.err; then
        echo "under_fire: $case_name skipped: $(cat mount.err)"
        return
    fi
    mounted=$scratch/disk
    fresh
    feed writer --db disk/q.db
    await says writer "'disk/q.db': .*\(disk is full\|disk I/O error\)"
    mount -o remount,size=32m disk
    goes_on writer
    stop writer 1
    sound disk/q.db

    mount -o remount,ro disk
    qos-host feed sim --db disk/q.db --count 1 2>readonly.err
    [ $? -eq 1 ] || complain "exit code $? with a read-only database"
    says readonly "'disk/q.db': .*\(readonly database\|unable to open database file\)" || complain "$(cat readonly.err)"
    # There is no log, and none can be made: the database is whole as it stands.
    qos-host sample queue-statistics --db disk/q.db --output none >readonly.out ||
        complain "exit code $? of a sample from a read-only disk"
    [ "$(passes readonly 128)" -eq 1 ] || complain "$(cat readonly.out)"
    qos-host sample queue-statistics --db q.db --capture disk/new.cap >/dev/null 2>readonly.err
    [ $? -eq 1 ] || complain "exit code $? with a read-only capture"
    says readonly "cannot write the capture 'disk/new.cap': Read-only file system" || complain "$(cat readonly.err)"
    umount disk
    mounted=
}

# Everything that belongs to a database that is fed, 150 times at whatever moment: the feed notices each, and what it
# writes then is in the file that has the name.
removed_while_fed() {
    local what before after
    newest() { sqlite3 -cmd '.timeout 1000' q.db 'SELECT sum(passPackets) FROM queue_stat' 2>newest.log; }
    is_newer() { after=$(newest) && [ "${after:-0}" -gt "$before" ]; }
    recovered() { [ "$(grep -c 'goes on after' writer.err)" -ge "$1" ]; }
    qos-host feed sim --db q.db --every 4ms --speed 10 --slots 1 --ports 4 >writer.out 2>writer.err &
    writer_pid=$!
    before=0
    await is_newer
    sampler reader 3ms
    for number in {1..150}; do
        before=$after
        sleep "0.0$((RANDOM % 200 + 100))"
        case $((RANDOM % 5)) in
        0) rm q.db ;;
        1) rm q.db-wal ;;
        2) rm q.db-shm ;;
        3) rm -f q.db q.db-wal q.db-shm ;;
        4) sqlite3 new.db 'CREATE TABLE other (x)' && mv new.db q.db ;;
        esac
        await recovered "$number"
        await is_newer
    done
    told writer 'was removed or replaced while' 150
    await more_passes reader 32 "$(passes reader 32)"
    kill "$reader_pid"
    wait "$reader_pid"
    stop writer 1
    sound q.db
}

# The host waits for whoever takes its capture, and the table is written anew each time before that takes some more.
written_between_batches() {
    local parts=0 states
    write() { sqlite3 -cmd '.timeout 5000' q.db "UPDATE queue_stat SET passPackets = $parts" || complain "cannot write"; }
    qos-host feed sim --db q.db --count 1 --slots 1 --ports 1024 || complain "no database"
    write
    mkfifo slow
    qos-host sample queue-statistics --db q.db --count 2 --output none --capture slow >reader.out 2>reader.err &
    reader_pid=$!
    exec 3<slow
    while head -c 20000 <&3 >part && [ -s part ]; do
        cat part >>q.cap
        parts=$((parts + 1))
        write
    done
    wait "$reader_pid"
    qos-host decode q.cap --output json >batches.json
    [ "$(wc -l <batches.json)" -eq 128 ] || complain "$(wc -l <batches.json) batches arrive in $parts parts"
    states=$(for pass in 'head -n 64' 'tail -n 64'; do $pass batches.json | grep -o '"pass-packets":"[0-9]*"' | uniq -c; done)
    [ "$(awk '{ print $1 }' <<<"$states")" = $'8192\n8192' ] || complain "passes of more than a state: $(head -n 5 <<<"$states")"
    [ "$(uniq -f 1 <<<"$states" | wc -l)" -eq 2 ] || complain "two passes of one state: $states"
}

one_feed_for_one_file() {
    local number each pids
    for number in {1..10}; do
        rm -f q.db* own*.db*
        pids=()
        for each in 1 2 3 4; do
            qos-host feed sim --db q.db --every 20ms --count 15 >out 2>$number-$each.err &
            pids+=($!)
            qos-host feed sim --db own$each.db --every 20ms --count 2 >out 2>own$each.err &
        done
        for each in 1 2 3 4; do
            if wait "${pids[each - 1]}"; then
                pids[each - 1]=done
            else
                says $number-$each "'q.db': process [0-9]* feeds it already" || complain "$(cat $number-$each.err)"
            fi
        done
        case ${pids[*]} in *done*) ;; *) complain "nobody feeds it" ;; esac
        wait
        ! grep -hv 'is late\|on time again\|rounds missed' own*.err || complain "own files: $(cat own*.err)"
    done
    fresh
    ln -s q.db link.db
    feed writer --db q.db
    await test -e q.db-wal
    for each in q.db link.db; do
        qos-host feed sim --db $each --count 1 >out 2>second.err && complain "a second feed of $each"
        says second "'$each': process $writer_pid feeds it already" || complain "$(cat second.err)"
    done
    stop writer 137 KILL
    qos-host feed sim --db q.db --count 1 || complain "the lock of a killed feed stays"
    sound q.db
}

# A database of one user is read by another, who may not write it.
read_by_others() {
    local other="setpriv --reuid=65534 --regid=65534 --clear-groups"
    chmod 755 .
    if ! $other qos-host paths >/dev/null 2>other.log; then
        echo "under_fire: $case_name skipped: $(cat other.log)"
        return
    fi
    look() { # MESSAGE, or none for success
        $other qos-host sample queue-statistics --db q.db --output none >look.out 2>look.err
        [ $? -eq $([ -z "$1" ] && echo 0 || echo 1) ] && { [ -z "$1" ] || says look "$1"; } ||
            complain "not '$1': $(cat look.out look.err)"
    }
    fresh
    look ''
    [ "$(ls q.db*)" = q.db ] || complain "left behind: $(ls q.db-*)"
    : >reader.out
    $other qos-host sample queue-statistics --db q.db --output none --every 2ms >reader.out 2>reader.err &
    reader_pid=$!
    await more_passes reader 128 1
    feed writer --db q.db --ports 4
    await more_passes reader 64 1
    chmod o-r q.db-shm
    look "cannot read table queue_stat: .*; this user may not read '.*/q.db-shm'"
    chmod o+r q.db-shm
    stop writer 0
    await more_passes reader 64 "$(passes reader 64)"
    kill "$reader_pid"
    wait "$reader_pid"
    feed writer --db q.db
    await test -s q.db-wal
    look ''
    stop writer 137 KILL
    look ''
    rm q.db-shm
    look "cannot read table queue_stat: .*'.*/q.db-wal' is left from a feed that ended early, .* write access"
    qos-host sample queue-statistics --db q.db --output none >reader.out || complain "root does not tidy up"
    look ''
    sound q.db
}

# Interfaces come and go as fast as the kernel lets them, so many of them that their dump takes several parts.
interfaces_come_and_go() {
    local inside space churn
    if [ -n "$emulator" ]; then
        echo "under_fire: $case_name skipped: $emulator passes no requests for queueing disciplines on to the kernel"
        return
    fi
    unshare -n sleep 1000 2>unshare.err &
    space=$!
    inside="nsenter --net=/proc/$space/ns/net"
    until [ "$(readlink /proc/self/ns/net)" != "$(readlink /proc/$space/ns/net)" ] || ! kill -0 $space; do sleep 0.05; done
    { echo "link add steady type veth peer name "$'q\xff\x1b'; echo "link set "$'q\xff\x1b'" up"; echo "link set steady up"
      for i in {1..60}; do echo "link add here$i type veth peer name there$i"; done; } | $inside ip -batch - 2>>unshare.err &&
        for what in 'qdisc add dev steady root handle 1: htb' 'class add dev steady classid 1:1 htb rate 1mbit' \
            'class add dev steady classid 1:2 htb rate 1mbit'; do $inside tc $what 2>>unshare.err || break; done
    if [ -s unshare.err ]; then
        echo "under_fire: $case_name skipped: $(cat unshare.err)"
        return
    fi
    while :; do for i in {1..30}; do echo "link add new$i type veth peer name own$i"; echo "link del new$i"; done; done |
        $inside ip -batch - >/dev/null 2>churn.log &
    churn=$!
    $inside qos-host feed kernel --db q.db --every 5ms >writer.out 2>writer.err &
    writer_pid=$!
    await qos-host sample queue-statistics --db q.db --output none >wait.out 2>wait.log
    sampler reader 10ms --where interface-name=steady
    await more_passes reader 2 300
    kill $churn || complain "interfaces have stopped to come and go: $(cat churn.log)"
    stop reader 0
    grep '^pass' reader.out | grep -v 'records 2,' && complain "steady's queues are missing in a round"
    [ "$(sqlite3 q.db "SELECT count(*) FROM queue_stat WHERE hex(ifName) = '71FF1B'")" = 1 ] ||
        complain "the database does not have the name that is not UTF-8: $(sqlite3 q.db 'SELECT hex(ifName) FROM queue_stat')"
    grep -v "keep changing while they are read\|goes on after\|no queue\|is late\|on time\|missed" writer.err && complain "the feed says: $(cat writer.err)"
    stop writer $(says writer 'keep changing' && echo 1 || echo 0)
}

declare -F "$case_name" >/dev/null || exit 2
"$case_name"
# What a sanitizer has to say counts whatever the exit code.
if grep -l 'Sanitizer\|runtime error' ./*.err; then
    complain "$(grep -h -A 20 'Sanitizer\|runtime error' ./*.err | head -n 30)"
fi
[ "$failures" -eq 0 ]
