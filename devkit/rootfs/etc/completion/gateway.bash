# shellcheck shell=bash
# Completion in bash: each program says itself what can stand at the end of its command line
# ("PROGRAM complete WORD..."). Bash takes words apart at ":" and "=" as well; the programs do not.
_gateway() {
  local line=${COMP_LINE:0:COMP_POINT} words candidates breaks
  read -ra words <<<"$line"
  [[ $line != *[$' \t'] ]] || words+=('')
  local word=${words[-1]}
  mapfile -t candidates < <("${words[0]}" complete "${words[@]:1}" 2>/dev/null)
  COMPREPLY=("${candidates[@]%%$'\t'*}")
  if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *[./=] ]]; then compopt -o nospace 2>/dev/null; fi
  breaks=${COMP_WORDBREAKS//[^:=]/}
  if [[ -n $breaks && $word == *["$breaks"]* ]]; then COMPREPLY=("${COMPREPLY[@]#"${word%"${word##*["$breaks"]}"}"}"); fi
}
complete -F _gateway cfgcmd modemctl vermgtctl nvram smspdu image-server name-server gateway-daemon
