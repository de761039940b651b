// The voice service: its start, and its voice path: on gateways with an LTE modem that moves
// between the firmware's voice stack and the modem's own voice. On the thread of
// "sysmgr:capabinfo".
#pragma once

#define VOIP_SERVICE "InternetGatewayDevice.Services.VoiceService."
#define VOIP_PROFILE VOIP_SERVICE "1.VoiceProfile."

constexpr char kVoipChanged[] = "/usr/sbin/voipcmd vc"; /* tells the stack */

/* The start of the service: what the gateway has, the LED, the plan of the country's numbers. */
void VoipStart();

/* Moves the path to what the parameters select. */
void VoipSwitchPath();
