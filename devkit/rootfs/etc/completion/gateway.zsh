#compdef cfgcmd modemctl vermgtctl nvram smspdu image-server name-server gateway-daemon
# Completion in zsh: each program says itself what can stand at the end of its command line. What ends
# in ".", "/" or "=" goes on.
local line
local -a whole parts
for line in ${(f)"$($words[1] complete "${(@Q)words[2,CURRENT]}" 2>/dev/null)"}; do
  if [[ ${line%%$'\t'*} == *[./=] ]]; then parts+=("${line%%$'\t'*}"); else whole+=("${line%%$'\t'*}"); fi
done
compadd -a whole
compadd -S '' -a parts
