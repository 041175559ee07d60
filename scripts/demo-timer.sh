# The first part of scripts/demo: an archive that is filled on a schedule, with live data of this machine.
# Sourced, never run.

show_timer() {
    local archive=host-memory limit=5 ticks_wanted=7
    local seen kept values left service=${service_of[host-memory]}
    local deadline=$((SECONDS + 90))

    say "a first client subscribes: memory and processor time of this machine, every 2 seconds, at most $limit snapshots"
    subscribe $archive
    say "that client has exited; the timer of the host process calls the component from now on"

    say "watching until $ticks_wanted different snapshots were seen (at most $((deadline - SECONDS)) seconds)"
    : >"$work/seen"
    while :; do
        if read_vornactl get "/Archive[@ID='$archive']//Time" --service "$service" >"$work/watch.xml"; then
            timestamps "$work/watch.xml" | sort -u - "$work/seen" >"$work/seen.new"
            mv "$work/seen.new" "$work/seen"
        fi
        seen=$(wc -l <"$work/seen")
        printf '   %s  %d seen, %s kept\n' "$(date +%T)" "$seen" "$(snapshot_count $archive)"
        [ "$seen" -lt "$ticks_wanted" ] || break
        [ $SECONDS -lt $deadline ] ||
            fail "only $seen of $ticks_wanted snapshots came in time" \
                "see that QXKeldanHost.exe runs in the Wine prefix $WINEPREFIX, and run scripts/demo again"
        sleep 2
    done

    say "a second client reads the archive, cut down to the memory"
    read_archive "/Archive[@ID='$archive']//Memory" $archive
    timestamps "$work/result.xml" >"$work/kept"
    kept=$(wc -l <"$work/kept")
    [ "$kept" -eq $limit ] || fail "the archive holds $kept snapshots; $limit were expected"
    sort -uc "$work/kept" || fail "the timestamps do not rise"
    grep -q '<Available' "$work/result.xml" || fail "the result holds no memory values"
    ! grep -q '<Busy' "$work/result.xml" || fail "the result was not cut down to the XPath"
    values=$(grep -o '<Available[^>]*>[^<]*' "$work/result.xml" | sort -u | wc -l)
    [ "$values" -gt 1 ] || fail "all snapshots hold the same value"
    say "$kept snapshots of the $(wc -l <"$work/seen") that were seen: the limit holds; timestamps rise, $values different values"
    demonstrate list
    archive_files | sed "s|^$project_root/|   |"

    say "unsubscribing"
    unsubscribe $archive
    [ -z "$(listed $archive)" ] || fail "the archive is still listed"
    left=$(archive_files | grep /machine/host/local/ || true)
    [ -z "$left" ] || fail "archive files were left: $left"
    say "nothing is left: no archive is listed, no archive file is on disk"
    vornactl list

    say "the same archive, begun and ended by a script"
    show cscript client.vbs begin "examples/$archive.xml" "$service"
    run cscript //nologo examples/client.vbs begin "examples/$archive.xml" "$service"
    vornactl list
    show cscript client.vbs end $archive "$service"
    run cscript //nologo examples/client.vbs end $archive "$service"
    [ -z "$(listed $archive)" ] || fail "the archive is still listed"
}
