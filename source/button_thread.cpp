// The module "sysmgr:button_proc": which handler gets which message.
#include "button_thread.h"

#include "button_func.h"

const MsgEntry kButtonMsgTable[] = {
    {TDS_MSG_INIT, ButtonInit},
    {EV_KEY_SWITCH, ButtonKeySwitch},
    {EV_KEY, ButtonKey},
    {TDS_MSG_TIMER + BUTTON_TIMER_LAN, ButtonLanTimer},
    {0, nullptr},
};
