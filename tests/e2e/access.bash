# shellcheck shell=bash
# shellcheck disable=SC2086 # the paths have no blanks
# Shared by the tests of service access control: the list of entries.

readonly ACCESS=$SERVICES.ServiceAccessControl

# access_entries [ENTRY...]: switches access control off and makes these the entries of the list.
# ENTRY: "SERVICE DIRECTION RANGE ACTION IPMODE PORT", "-" for an empty text. Rows that are there are
# used again: each request costs a flush.
access_entries() {
  local list rows row path entry service direction range action mode port
  cfgcmd set $ACCESS.Enable 0 || return
  list=$(cfgcmd list $ACCESS.ServiceCtrlList) || return
  read -ra rows <<<"${list//,/ }"
  for entry in "$@"; do
    if [ ${#rows[@]} -gt 0 ]; then
      path=$ACCESS.ServiceCtrlList.${rows[0]} rows=("${rows[@]:1}")
    else
      path=$(cfgcmd add $ACCESS.ServiceCtrlList) || return
    fi
    read -r service direction range action mode port <<<"$entry"
    cfgcmd set "$path.Enable" 1 "$path.ServiceName" "$service" "$path.AccessDirection" "${direction#-}" \
      "$path.SrcIpRange" "${range#-}" "$path.Action" "$action" "$path.IPMode" "$mode" "$path.Port" "$port" || return
  done
  for row in "${rows[@]}"; do cfgcmd del "$ACCESS.ServiceCtrlList.$row" || return; done
}

# The same, and access control is on when it returns: the answer comes after the rebuild.
access_list() { access_entries "$@" && cfgcmd set $ACCESS.Enable 1; }
