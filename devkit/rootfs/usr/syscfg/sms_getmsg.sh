#!/bin/bash
# Board script: leaves the modem's list of short messages in /var/atresult_msg, complete at once.
# sms_getmsg.sh FILTER: 0 received, 1 sent, 2 unsent. A listing makes the modem take what it lists for
# read, so the inbox is listed for filter 0 alone; the reader passes over what else comes with it.
echo "$0 $*" >>/var/log/devkit/calls
case $1 in
  1) status=3 ;;
  2) status=2 ;;
  *) status=4 ;;
esac
readonly answer=/var/atresult_msg
rm -f $answer
# The reader waits for 2 seconds: an answer that is later would be taken for the next list. Without
# one it need not wait as long.
at-mngr -t 1.7 AT+CMGL=$status >$answer.$$ || [ $? -eq 1 ] || echo ERROR >$answer.$$
mv -f $answer.$$ $answer
