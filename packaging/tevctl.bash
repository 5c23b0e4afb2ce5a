# Completion of tevctl's options, commands and words for bash. What there is to complete, tevctl says itself.

_tevctl() {
  local current=${COMP_WORDS[COMP_CWORD]} at=1 effect key places place words=''
  local program=${COMP_WORDS[0]}
  # The options in front of the command, and the value of the one that has one.
  while [[ $at -lt $COMP_CWORD && ${COMP_WORDS[at]} == -* ]]; do
    [[ ${COMP_WORDS[at]} == --timeout ]] && ((at++))
    ((at++))
  done
  COMPREPLY=()
  if [[ ${COMP_WORDS[at - 1]} == --batch ]]; then
    compopt -o default 2>/dev/null
  elif [[ $current == -* && $at -eq $COMP_CWORD ]]; then
    words='--json --timeout --batch --keep-going --list --help'
  else
    while read -r effect key places; do
      if [[ $at -ge $COMP_CWORD ]]; then
        [[ $words == *" $key" ]] || words+=" $key" # once for all its forms
      elif [[ $key == "${COMP_WORDS[at]}" ]]; then
        read -r -a places <<<"$places"
        # What has been typed must go with this form.
        for ((place = 0; place < COMP_CWORD - at - 1; place++)); do
          [[ ${places[place]} == \<* || "|${places[place]}|" == *"|${COMP_WORDS[at + 1 + place]}|"* ]] || continue 2
        done
        place=${places[place]-}
        [[ $place == \<* || $words == *" $place" ]] || words+=" $place"
      fi
    done < <("$program" --list 2>/dev/null)
  fi
  local IFS=$' |'
  mapfile -t COMPREPLY < <(compgen -W '$words' -- "$current")
}
complete -F _tevctl tevctl
