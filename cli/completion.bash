# Bash completion for offlinetz: commands and options from its own help texts, and file names.

# Prints the subcommands that the help text on standard input lists.
_offlinetz_commands() { sed -n '/^Subcommands:/,$s/^  \([a-z]*\) .*/\1/p'; }

_offlinetz() {
  local word=${COMP_WORDS[COMP_CWORD]} earlier help
  local -a command=("${COMP_WORDS[0]}")
  help=$("${command[@]}" --help 2>/dev/null)
  for earlier in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if _offlinetz_commands <<<"$help" | grep -qxF -e "$earlier"; then
      command+=("$earlier")
      help=$("${command[@]}" --help 2>/dev/null)
    fi
  done
  case $word in
    -*) mapfile -t COMPREPLY < <(compgen -W "$(grep '^  -' <<<"$help" | grep -o -e '--[a-z-]*')" -- "$word") ;;
    *) mapfile -t COMPREPLY < <(compgen -W "$(_offlinetz_commands <<<"$help")" -- "$word") ;;
  esac
}
complete -o default -F _offlinetz offlinetz
