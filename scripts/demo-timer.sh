# The first part of scripts/demo: an archive that is filled on a schedule, with live data of this machine.
# Sourced, not run.

show_timer() {
    local archive=host-memory ticks_wanted=7 seen=0
    local service=${service_of[host-memory]} deadline=$((SECONDS + 90))

    say "a first client subscribes: memory and processor time of this machine, every 2 seconds, at most 5 snapshots"
    subscribe $archive
    say "that client has exited; the timer of the host process calls the component from now on"

    say "watching until $ticks_wanted different snapshots were seen (at most 90 seconds)"
    : >"$work/seen"
    while [ "$seen" -lt $ticks_wanted ]; do
        [ $SECONDS -lt $deadline ] || fail "only $seen of $ticks_wanted snapshots came in time" "$host_hint"
        if read_vornactl get "/Archive[@ID='$archive']//Time" --service "$service" >"$work/watch.xml"; then
            timestamps "$work/watch.xml" | sort -u -o "$work/seen" - "$work/seen"
        fi
        seen=$(wc -l <"$work/seen")
        printf '   %s  %d seen, %s kept\n' "$(date +%T)" "$seen" "$(snapshot_count $archive)"
        sleep 2
    done

    say "a second client reads the archive, cut down to the memory"
    read_archive "/Archive[@ID='$archive']//Memory" $archive
    say "the archive keeps the newest $(timestamps "$work/result.xml" | wc -l) snapshots; $seen were seen"
    demonstrate list
    archive_files | sed "s|^$project_root/|   |"

    say "unsubscribing deletes the archive and its files"
    unsubscribe $archive
    demonstrate list
    archive_files | sed "s|^$project_root/|   |"

    say "the same archive, begun and ended by a script"
    show cscript client.vbs begin "examples/$archive.xml" "$service"
    run cscript //nologo examples/client.vbs begin "examples/$archive.xml" "$service"
    demonstrate list
    show cscript client.vbs end $archive "$service"
    run cscript //nologo examples/client.vbs end $archive "$service"
}
