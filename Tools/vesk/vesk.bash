# SPDX-License-Identifier: MIT
# Bash completion for vesk. Commands and options are read from --help, so that they are always those of the program
# that is installed.

# Words of a help text: options ("--name"), and with "commands" the first words of indented lines.
_vesk_words() {
  local help
  help=$(command vesk "${@:2}" --help 2>/dev/null) || return
  if [[ $1 == commands ]]; then
    sed -nE 's/^  ([a-z][a-z-]*) {2,}.*/\1/p' <<<"$help"
  else
    grep -oE -- '--[a-z][a-z-]*' <<<"$help" | sort -u
  fi
}

_vesk() {
  local current=${COMP_WORDS[COMP_CWORD]}
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    # shellcheck disable=SC2207
    COMPREPLY=($(compgen -W "$(_vesk_words commands) $(_vesk_words options)" -- "$current"))
  elif [[ $current == -* ]]; then
    # shellcheck disable=SC2207
    COMPREPLY=($(compgen -W "$(_vesk_words options "${COMP_WORDS[1]}")" -- "$current"))
  else
    # shellcheck disable=SC2207
    COMPREPLY=($(compgen -W "$(_vesk_words commands "${COMP_WORDS[1]}")" -- "$current") $(compgen -f -- "$current"))
  fi
}

complete -o filenames -F _vesk vesk
