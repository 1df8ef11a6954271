# Completion of vynpkt for bash.

# The full names of messages, and the last part of each name that is the only one with that part.
_vynpkt_messages() {
    vynpkt list 2>/dev/null | awk '
        { short = $0; sub(/.*\./, "", short); names[short] = $0; count[short]++; print }
        END { for (short in names) if (count[short] == 1 && short != names[short]) print short }'
}

_vynpkt_words() { mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2"); }

_vynpkt_files() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

_vynpkt() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]} statuses="NONE HISTORY TRANSIT LIVE ABNORMAL"
    local options="-h --help -o --output -v --verbose --json"
    local commands="pack unpack compress decompress show append verify recover diff list describe
        encode decode types checksum restamp"
    local keys="message_id= correlation_id= version= system_id= sub_system_id= device_id=
        message_type= target_id= ttl= time= property_bag. body= type= encoding= status= body_length=
        offset= length= name= unknown_fields= message."
    COMPREPLY=()
    # Bash takes the "=" of --status=LIVE for a word of its own.
    if [[ $before == --* && $word == = ]]; then
        word=
    elif [[ $before == = && ${COMP_WORDS[COMP_CWORD - 2]} == --* ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    if [ "$COMP_CWORD" -eq 1 ]; then
        _vynpkt_words "$commands help --help --version" "$word"
        return
    fi
    case $command in
        pack)
            options+=" --body -t --type --new-id --now --status -z --compress -l --lines --hex"
            options+=" --base64 --types --header --lenient"
            ;;
        unpack)
            options+=" --body -t --type --types --header --keep-body --enum-names -l --lines"
            options+=" --hex --base64 --plain"
            ;;
        append) options+=" -l --lines --hex --base64 --plain" ;;
        describe) options+=" -r --recursive --example" ;;
        show)
            options+=" -n --skip --only --types --header --keep-body --enum-names --offset
                --csv --tsv --each --summary --records --count -f --follow"
            ;;
        diff) options+=" --types --enum-names" ;;
        list) options+=" --files" ;;
        encode | decode) options+=" -t --type" ;;
    esac
    case $before in
        -t | --type) _vynpkt_words "$(_vynpkt_messages)" "$word" && return ;;
        --status) _vynpkt_words "$statuses" "$word" && return ;;
        -n | --skip | --csv | --tsv | --each) return ;;
        --only)
            compopt -o nospace 2>/dev/null
            _vynpkt_words "$keys" "$word" && return
            ;;
        -o | --output | --body | --types) _vynpkt_files "$word" && return ;;
    esac
    case $word in
        -*) _vynpkt_words "$options" "$word" && return ;;
    esac
    case $command in
        help) _vynpkt_words "$commands" "$word" ;;
        describe) _vynpkt_words "$(_vynpkt_messages)" "$word" ;;
        restamp)
            # The first argument is the status, the second one the file.
            if [ "$COMP_CWORD" -eq 2 ]; then
                _vynpkt_words "$statuses" "$word"
            else
                _vynpkt_files "$word"
            fi
            ;;
        list) _vynpkt_words "$options" "$word" ;;
        *) _vynpkt_files "$word" ;;
    esac
}

complete -F _vynpkt vynpkt
