# Completion of kestrav for bash. The lists below are those of `kestrav COMMAND --help`.

_kestrav_commands="import record info cat play repair check recover trim merge split diff index export report"

_kestrav_options() {
  case $1 in
    import) echo "--help --output --plain --limit --time-column" ;;
    record) echo "--help --output --plain --sync --reserve" ;;
    info) echo "--help --json --scan" ;;
    cat) echo "--help --client --from --to --format --follow" ;;
    play)
      echo "--help --client --speed --from --history --rewind --format --unpaced --virtual --mode"
      ;;
    repair) echo "--help --dry-run" ;;
    check) echo "--help --json" ;;
    recover) echo "--help --output --json" ;;
    report) echo "--help --output --client --from --to --records" ;;
    export) echo "--help --to --output --client --from --until --per-client --interface" ;;
    trim) echo "--help --output --client --from --to --keep-state --plain" ;;
    merge) echo "--help --output --plain" ;;
    split) echo "--help --every --size --output --force --plain" ;;
    diff) echo "--help --list --json" ;;
    index) echo "--help --force" ;;
    *) echo "--help --version" ;;
  esac
}

# What may stand behind an option; "-" where only the person knows.
_kestrav_values() {
  case $1:$2 in
    cat:--format) echo "text jsonl raw" ;;
    export:--to) echo "jsonl csv candump nmea pcapng mcap" ;;
    play:--format) echo "text jsonl" ;;
    play:--speed) echo "1 2 4 10" ;;
    play:--mode) echo "normal polling pass-through" ;;
    report:--records) echo "-" ;;
    *:--limit | *:--time-column | *:--client | *:--from | *:--to | *:--until | *:--interface) echo "-" ;;
    *:--rewind | *:--sync | *:--reserve | *:--every | *:--size | *:--list) echo "-" ;;
  esac
}

# Files that end with one of the suffixes, and folders.
_kestrav_files() {
  local word=$1 suffix
  shift
  compopt -o filenames 2>/dev/null
  for suffix; do
    mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -X "!*$suffix" -- "$word")
  done
  mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -d -- "$word")
}

# A trace is [NAME=]KIND:FILE, in which bash takes the colon, and the equals sign, for ends of words.
_kestrav_trace() {
  local word=$1
  case $word in
    nmea:* | candump:* | csv:* | *=nmea:* | *=candump:* | *=csv:*)
      compopt -o filenames 2>/dev/null
      local front=${word%%:*}:
      mapfile -t COMPREPLY < <(compgen -f -P "$front" -- "${word#"$front"}")
      ;;
    *=*)
      compopt -o nospace 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -W "nmea: candump: csv:" -P "${word%%=*}=" -- "${word#*=}")
      ;;
    *)
      compopt -o nospace 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -W "nmea: candump: csv:" -- "$word")
      ;;
  esac
}

# The word at the cursor as the program will see it: with the parts that bash cut at : and =.
_kestrav_word() {
  local line=${COMP_LINE:0:COMP_POINT}
  echo "${line##*[[:space:]]}"
}

_kestrav_complete() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
  local command="" values whole
  ((COMP_CWORD > 1)) && command=${COMP_WORDS[1]}
  whole=$(_kestrav_word)
  COMPREPLY=()

  if [[ $whole == --*=* ]]; then  # --format=text
    before=${whole%%=*}
    word=${whole#*=}
  fi
  [[ $before == -o ]] && before=--output
  values=$(_kestrav_values "$command" "$before")
  if [[ -n $values ]]; then
    [[ $values == - ]] || mapfile -t COMPREPLY < <(compgen -W "$values" -- "$word")
  elif [[ $command:$before == report:--output ]]; then
    _kestrav_files "$word" .html
  elif [[ $command == export && $before == --output ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
  elif [[ $before == --output ]]; then
    _kestrav_files "$word" .klog
  elif [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(_kestrav_options "$command")" -- "$word")
  elif [[ -z $command ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$_kestrav_commands" -- "$word")
  elif [[ $command == import ]]; then
    _kestrav_trace "$whole"
    # Bash replaces only what stands behind the last : or =.
    local front=${whole%"$word"}
    [[ $word == [:=] ]] && front=$whole
    [[ -z $front ]] || COMPREPLY=("${COMPREPLY[@]#"$front"}")
  elif [[ $command == record ]]; then
    mapfile -t COMPREPLY < <(compgen -W "lines:-" -- "${whole#*=}")
  else
    _kestrav_files "$word" .klog
  fi
}

complete -F _kestrav_complete kestrav
