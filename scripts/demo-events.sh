# The second part of scripts/demo: archives that wait for events, of the event manager and of a data model.
# Sourced, not run.

gauge_model=$data_folder/models/gauge1+pressure+line1.xml
# The data model of the gauge before the demonstration; kept until it is restored, if necessary by a later run.
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

has_snapshots() { [ "$(snapshot_count "$1")" = "$2" ]; }
wait_for_snapshot() { wait_until "snapshot $2 of $1" has_snapshots "$1" "$2"; }

# Snapshots are named by the second, so two of them need different seconds.
next_second() {
    local now
    now=$(date +%s)
    while [ "$(date +%s)" = "$now" ]; do sleep 0.05; done
}

# raise DOOR: raises the event for a door, with a payload of that door.
raise() {
    sed "s/\"front\"/\"$1\"/" examples/door-event.xml >"$work/door-event-$1.xml"
    show vornactl raise DoorOpened --property "Door=$1" --payload "door-event-$1.xml"
    vornactl raise DoorOpened --property "Door=$1" --payload "$(windows_path "$work/door-event-$1.xml")"
}

# put_model KILOPASCALS: stores a data model of the gauge with that pressure.
put_model() {
    sed "s/412.5/$1/" "examples/gauge1+pressure+line1.xml" >"$work/gauge-$1.xml"
    show vornactl model put examples/service-gauge.xml "gauge-$1.xml"
    vornactl model put examples/service-gauge.xml "$(windows_path "$work/gauge-$1.xml")"
}

show_door() {
    say "an archive that waits for an event: openings of the front door, reduced by a stylesheet"
    subscribe door-opened
    raise back
    raise front
    wait_for_snapshot door-opened 1
    read_archive "/Archive[@ID='door-opened']/*" door-opened
    say "the archive has the result of the stylesheet for the front door; the event of the back door was not captured"
    unsubscribe door-opened
}

show_gauge() {
    local changes
    say "archives that watch a data model: one captures every change of a pressure, one its rise above 500 kPa"
    put_model 412.5
    subscribe gauge-changes
    subscribe gauge-threshold
    changes=$(snapshot_count gauge-changes)

    say "530 kPa: above the threshold"
    put_model 530.0
    wait_for_snapshot gauge-threshold 1
    wait_for_snapshot gauge-changes $((changes + 1))
    next_second

    say "540 kPa: a change, but no new rise above the threshold"
    put_model 540.0
    wait_for_snapshot gauge-changes $((changes + 2))
    next_second

    say "440 kPa: below the reset; 530 kPa: above the threshold again"
    put_model 440.0
    wait_for_snapshot gauge-changes $((changes + 3))
    next_second
    put_model 530.0
    wait_for_snapshot gauge-threshold 2
    wait_for_snapshot gauge-changes $((changes + 4))

    read_archive "/Archive[@ID='gauge-threshold']//*[local-name()='Pressure']" gauge-threshold
    say "two snapshots: one for each rise above the threshold"
    demonstrate list
    unsubscribe gauge-threshold
    unsubscribe gauge-changes
}

show_events() {
    keep_model
    show_door
    show_gauge
}
