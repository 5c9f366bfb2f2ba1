# bash completion of plovctl: verbs and options from its own help, files for the rest.
_plovctl() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} verb= word
  local verbs="init record event show info check dump purge prune trim path trace explain spawn"
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ " $verbs " == *" $word "* ]] && verb=$word && break
  done
  case $previous in
    --color) COMPREPLY=($(compgen -W "auto always never" -- "$current")); return ;;
    --since | --until) COMPREPLY=($(compgen -W "today yesterday now -1h -1d" -- "$current")); return ;;
    --level) COMPREPLY=($(compgen -W "T D F" -- "$current")); return ;;
    --root) COMPREPLY=($(compgen -d -- "$current")); return ;;
  esac
  if [[ $current == -* ]]; then
    COMPREPLY=($(compgen -W "$(plovctl $verb --help 2>/dev/null | grep -oE '(^|[ ,])--[a-z-]+' | tr -d ' ,')" -- "$current"))
  elif [[ -z $verb ]]; then
    COMPREPLY=($(compgen -W "$verbs" -- "$current"))
  else
    COMPREPLY=($(compgen -f -- "$current"))
  fi
}
complete -o filenames -F _plovctl plovctl
