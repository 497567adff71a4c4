# bash completion for zthost. Commands and options come from zthost's own help at the moment of
# completing (`zthost help`, `zthost COMMAND --help`), so they are always those of the zthost
# being completed; --device completes the names `zthost devices` lists.

_zthost_words_of_help() {
  # Long options of a help text: "  --name <VALUE>" or "  -v, --verbose".
  sed -n 's/^ *\(-[a-z], \)\{0,1\}\(--[a-z][a-z-]*\).*/\2/p'
}

_zthost() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}
  local zthost=${COMP_WORDS[0]} command="" i word
  COMPREPLY=()

  # The command is the first word that is neither an option nor an option's value.
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    case $word in
      --plugin | --skf | --device | --root | --config | --host-log) ((i++)) ;;
      -*) ;;
      *) command=$word; break ;;
    esac
  done

  case $prev in
    --plugin | --skf | --host-log | --config | --in | --out | --cert)
      COMPREPLY=($(compgen -f -- "$cur"))
      return
      ;;
    --root | --web)
      COMPREPLY=($(compgen -d -- "$cur"))
      return
      ;;
    --device)
      COMPREPLY=($(compgen -W "$("$zthost" devices 2>/dev/null | awk 'NR > 1 {print $1}')" -- "$cur"))
      return
      ;;
  esac

  if [[ -z $command ]]; then
    if [[ $cur == -* ]]; then
      COMPREPLY=($(compgen -W "--version $("$zthost" --version --help 2>/dev/null | _zthost_words_of_help)" -- "$cur"))
    else
      COMPREPLY=($(compgen -W "$("$zthost" help 2>/dev/null | sed -n '/^Commands:$/,/^$/{s/^  \([a-z-]*\) .*/\1/p}')" -- "$cur"))
    fi
    return
  fi

  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$("$zthost" "$command" --help 2>/dev/null | _zthost_words_of_help)" -- "$cur"))
  elif [[ $command == help ]]; then
    COMPREPLY=($(compgen -W "$("$zthost" help 2>/dev/null | sed -n '/^Commands:$/,/^$/{s/^  \([a-z-]*\) .*/\1/p}')" -- "$cur"))
  elif [[ $command == config ]]; then
    COMPREPLY=($(compgen -W "set unset host/plugin host/skf host/device host/root bridge/port bridge/origins" -- "$cur"))
  fi
}

complete -F _zthost zthost
