# bash completion of plovctl: verbs and options from its own help, files for the rest.
_plovctl() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} verb= word
  local verbs="init record event microcode update delete show info snapshot check dump purge prune trim doctor path ls sim trace explain spawn restart"
  local sims="list get set lock unlock size build"
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ " $verbs " == *" $word "* ]] && verb=$word && break
  done
  case $previous in
    --color) COMPREPLY=($(compgen -W "auto always never" -- "$current")); return ;;
    --since | --until) COMPREPLY=($(compgen -W "today yesterday now -1h -1d" -- "$current")); return ;;
    --type) [[ $verb == restart ]] && COMPREPLY=($(compgen -W "reboot halt poweroff" -- "$current")) && return ;;
    --level) COMPREPLY=($(compgen -W "T D F" -- "$current")); return ;;
    --as) COMPREPLY=($(compgen -W "auto number text hex" -- "$current")); return ;;
    sim) COMPREPLY=($(compgen -W "$sims" -- "$current")); return ;;
    --root | --out) COMPREPLY=($(compgen -d -- "$current")); return ;;
  esac
  for word in "${COMP_WORDS[@]:2:COMP_CWORD-2}"; do
    [[ $verb == sim && " $sims " == *" $word "* ]] && verb="sim $word" && break
  done
  if [[ $current == -* ]]; then
    COMPREPLY=($(compgen -W "$(plovctl $verb --help 2>/dev/null | grep -oE '(^|[ ,])--[a-z-]+' | tr -d ' ,')" -- "$current"))
  elif [[ -z $verb ]]; then
    COMPREPLY=($(compgen -W "$verbs" -- "$current"))
  else
    COMPREPLY=($(compgen -f -- "$current"))
  fi
}
complete -o filenames -F _plovctl plovctl
