# The second part of scripts/demo: archives that wait for events, of the event manager and of a data model.
# Sourced, never run.

gauge_model=$data_folder/models/gauge1+pressure+line1.xml
# What the gauge's data model was before; kept until it was put back, also by a later run.
model_before=$work/model-before

keep_model() {
    [ ! -e "$model_before" ] || return 0
    if [ -e "$gauge_model" ]; then cp "$gauge_model" "$model_before"; else : >"$model_before"; fi
}
restore_model() {
    [ -e "$model_before" ] || return 0
    if [ -s "$model_before" ]; then cp "$model_before" "$gauge_model"; else rm -f "$gauge_model"; fi
    rm "$model_before"
}

# holds ARCHIVE COUNT: whether the archive has so many snapshots.
holds() { [ "$(snapshot_count "$1")" = "$2" ]; }
# expect_holds ARCHIVE COUNT: fails unless it has.
expect_holds() { holds "$1" "$2" || fail "the archive $1 holds $(snapshot_count "$1") snapshots; $2 were expected"; }
wait_for_snapshot() { wait_until "snapshot $2 of $1" holds "$1" "$2"; }

# Snapshots are named by the second: what is to be captured separately is done in another one.
next_second() {
    local now
    now=$(date +%s)
    while [ "$(date +%s)" = "$now" ]; do sleep 0.05; done
}

# raise DOOR ANSWER: raises the event for a door, with a payload of that door, and checks what vornactl says.
raise() {
    sed "s/\"front\"/\"$1\"/" examples/door-event.xml >"$work/door-event-$1.xml"
    show vornactl raise DoorOpened --property "Door=$1" --payload "door-event-$1.xml"
    read_vornactl raise DoorOpened --property "Door=$1" --payload "$(windows_path "$work/door-event-$1.xml")" >"$work/raised" ||
        fail "the event was not raised"
    cat "$work/raised"
    grep -q "$2" "$work/raised" || fail "raising the event for the $1 door did not say: $2"
}

# put_model KILOPASCALS: stores a model of the gauge with that pressure.
put_model() {
    sed "s/412.5/$1/" "examples/gauge1+pressure+line1.xml" >"$work/gauge-$1.xml"
    show vornactl model put examples/service-gauge.xml "gauge-$1.xml"
    vornactl model put examples/service-gauge.xml "$(windows_path "$work/gauge-$1.xml")"
}

show_door() {
    say "an archive that waits for an event: openings of the front door, with a stylesheet that keeps the essential"
    subscribe door-opened
    raise back "no subscription waits for it"
    raise front "queued for 1 subscription"
    wait_for_snapshot door-opened 1
    read_archive "/Archive[@ID='door-opened']/*" door-opened
    [ "$(grep -o '<Opened [^>]*>' "$work/result.xml")" = '<Opened Door="front" At="2026-11-23T07:58:12" Badge="4711"/>' ] ||
        fail "the archive does not hold the turned payload of the front door, and it alone"
    ! grep -q '<Battery\|<Payload' "$work/result.xml" || fail "the archive holds more than the stylesheet made"
    say "the archive holds what the stylesheet made of the front door's payload; the back door is not in it"
    unsubscribe door-opened
}

show_gauge() {
    local changes
    say "archives that watch a data model: one takes every change of a pressure, one its rise above 500 kPa"
    put_model 412.5
    subscribe gauge-changes
    subscribe gauge-threshold
    changes=$(snapshot_count gauge-changes)
    expect_holds gauge-threshold 0

    say "530 kPa: above the threshold"
    put_model 530.0
    wait_for_snapshot gauge-threshold 1
    wait_for_snapshot gauge-changes $((changes + 1))
    next_second

    say "540 kPa: a change, but it has been above the threshold all the time"
    put_model 540.0
    wait_for_snapshot gauge-changes $((changes + 2))
    expect_holds gauge-threshold 1
    next_second

    say "440 kPa: below the reset; 530 kPa: above the threshold again"
    put_model 440.0
    wait_for_snapshot gauge-changes $((changes + 3))
    next_second
    put_model 530.0
    wait_for_snapshot gauge-threshold 2
    wait_for_snapshot gauge-changes $((changes + 4))

    read_archive "/Archive[@ID='gauge-threshold']//*[local-name()='Pressure']" gauge-threshold
    expect_holds gauge-threshold 2
    [ "$(grep -o '>[0-9.]*</g:Pressure>' "$work/result.xml" | tr -d '\n')" = '>530.0</g:Pressure>>530.0</g:Pressure>' ] ||
        fail "the archive does not hold the two rises to 530 kPa, and them alone"
    timestamps "$work/result.xml" | sort -uc || fail "the timestamps do not rise"
    say "two snapshots: each rise above the threshold once"
    demonstrate list
    unsubscribe gauge-threshold
    unsubscribe gauge-changes
}

show_events() {
    keep_model
    show_door
    show_gauge
    local archive
    for archive in "${archives[@]}"; do
        [ -z "$(listed "$archive")" ] || fail "the archive $archive is still listed"
    done
}
