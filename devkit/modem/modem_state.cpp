// What the modem simulator keeps; see modem_state.h.
#include "modem_state.h"

#include <algorithm>
#include <iterator>

void ModemPowerCycle(Modem *modem) {
  const Modem fresh;
  modem->echo = fresh.echo;
  modem->charset = fresh.charset;
  std::copy(std::begin(fresh.memory), std::end(fresh.memory), modem->memory);
  modem->settings.clear();
  modem->ussd_at.clear();
  modem->line.clear();
  modem->wants_pdu = nullptr;
  modem->pdu_arguments.clear();
}
