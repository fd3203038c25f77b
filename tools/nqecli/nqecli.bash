# Completion of nqecli for bash: source this file. The tool itself knows its commands, options, tables and fields, and
# what the arena holds now; "nqecli complete" tells it, a candidate a line with a tab before its meaning.
_nqecli() {
  local current=${COMP_WORDS[COMP_CWORD]} words=("${COMP_WORDS[@]:1:COMP_CWORD}") line text
  # bash takes '=' and ':' for words of their own: the words are those of the line up to the cursor.
  text=${COMP_LINE:0:COMP_POINT}
  if [[ $text != *[\'\"\\]* ]]; then
    read -ra words <<<"$text"
    words=("${words[@]:1}")
    [[ $text == *' ' ]] && words+=('')
  fi
  local typed=${words[${#words[@]} - 1]}
  # What bash has cut off before its own last word stays as it is.
  local cut=${typed%"$current"}
  [[ $current == [=:] ]] && cut=$typed
  COMPREPLY=()
  while IFS=$'\t' read -r line _; do
    COMPREPLY+=("${line#"$cut"}")
    [[ $line == *[=/,] ]] && compopt -o nospace
  done < <("${COMP_WORDS[0]}" complete "${words[@]}" 2>/dev/null)
}
complete -F _nqecli nqecli
