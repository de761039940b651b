# Completion in fish: each program says itself what can stand at the end of its command line.
function __gateway_complete
    set -l words (commandline -opc) (commandline -ct)
    $words[1] complete $words[2..-1] 2>/dev/null
end
for program in cfgcmd modemctl vermgtctl nvram smspdu image-server name-server gateway-daemon
    complete -c $program -f -a '(__gateway_complete)'
end
