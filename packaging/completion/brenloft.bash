# Completion of brenloft for bash: the tool itself says what may come next.
_brenloft() {
  local cur words cword line names rest
  _get_comp_words_by_ref -n =: cur words cword
  COMPREPLY=()
  while IFS= read -r line; do
    case $line in
      # Names of folders or files, behind what stands in front of them
      $'\t'*)
        IFS=$'\t' read -r names rest <<<"${line#?}"
        compopt -o filenames
        mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -A "${names/folder/directory}" -- "${cur#"$rest"}")
        ;;
      *)
        COMPREPLY+=("${line%%$'\t'*}")
        [[ ${COMPREPLY[-1]} != *[:=] ]] || compopt -o nospace
        ;;
    esac
  done < <("$1" __complete "${words[@]:1:cword}" 2>/dev/null)
  # bash takes = and : for ends of words, so what stands before them is there already.
  rest=${cur%"${cur##*[=:]}"}
  COMPREPLY=("${COMPREPLY[@]#"$rest"}")
}
complete -F _brenloft brenloft
