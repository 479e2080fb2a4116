# bash completion for Quillmend(1)

# Offers what still changes something: -help and the commands of sharing are carried out alone, -trash is both of the others.
# Capitals do not matter, so what is typed in capitals is completed in small letters.
_Quillmend() {
  local word=${COMP_WORDS[COMP_CWORD]} given=" " offered option i
  word=${word,,}
  for ((i = 1; i < ${#COMP_WORDS[@]}; i++)); do
    ((i == COMP_CWORD)) || given+="${COMP_WORDS[i],,} "
  done

  COMPREPLY=()
  case $given in
    *" -help "* | *" -stopsharing "* | *" -startsharing "* | *" -restartsharing "*) return ;;
    *" -repair "* | *" -auto "* | *" -silent "* | *" -trash"*) offered="-repair -silent -trash -trashlayout -trashprefs" ;;
    *) offered="-help -repair -restartsharing -silent -startsharing -stopsharing -trash -trashlayout -trashprefs" ;;
  esac
  for option in $offered; do
    case $option$given in
      *" $option "* | -repair*" -auto "* | "-trash "*" -trash"* | -trash?*" -trash "*) ;;
      "$word"*) COMPREPLY+=("$option") ;;
    esac
  done
}

complete -F _Quillmend Quillmend
