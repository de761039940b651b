// What the modem simulator keeps. No tty, no socket and no clock, which are others', so that
// tests drive it directly. One thread.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

struct ModemMessage {
  int stat;        /* 0 unread, 1 read: received; 2 unsent, 3 sent */
  std::string pdu; /* hexadecimal, with the service centre's address */
};

struct ModemStorage {
  size_t size; /* places; the first has index 0 */
  std::map<int, ModemMessage> messages;
};

struct ModemContact {
  std::string number;
  int type;         /* 129, 145: international */
  std::string name; /* UTF-8 */
};

/* What the network answers to a code such as "*100#", or to the choices behind it: "*100#/1/2".
   One that has choices keeps the dialogue open. */
struct ModemUssd {
  std::string text; /* UTF-8 */
  int dcs;          /* tells the form between the quotes, see UssdText; 0: what fits the text */
};

struct ModemSent {
  std::string to, pdu;
};

struct ModemCall {
  std::string command; /* what was not printable is "\x1a" */
  std::string result;  /* with the reason, when the modem has one */
};

struct ModemBehaviour {
  enum Kind { NORMAL, SLOW, REFUSE, GARBAGE, DROP } kind = NORMAL;
  int amount = 0;   /* SLOW: milliseconds; REFUSE: the error's number, 0 for the usual one */
  std::string only; /* the one command it is for, as "+CMGS"; "" for all */
};

struct AtRow;

constexpr int kModemBestSignal = 31, kModemNoNetwork = 99; /* as "+CSQ:" tells them */

struct Modem {
  /* The SIM and the network */
  std::string number = "+8613900000001"; /* its own: what is sent there comes back */
  std::string centre = "+8613800100500"; /* of the service */
  std::map<std::string, ModemStorage> storages = {{"SM", {50, {}}}, {"ME", {100, {}}}};
  std::map<int, ModemContact> contacts; /* from 1 to contacts_size */
  size_t contacts_size = 250;
  int signal = 24; /* its strength, 0 to the best, or that there is no network */
  std::map<std::string, ModemUssd> ussd = {
      {"*100#", {"1 Balance\n2 Data left", 0}},
      {"*100#/1", {"Your balance is 12.50", 0}},
      {"*100#/2", {"You have 3 GB left", 0}},
  };
  std::deque<ModemSent> sent;          /* the last ones that went out */
  std::deque<std::string> waiting;     /* received PDUs for which there is no room yet */
  unsigned long_reference = 0;         /* of the last long message received */
  int reference = 0;                   /* of the last message sent, as "+CMGS:" tells it */
  bool attached = true;                /* plugged in: there is a tty */
  std::deque<ModemCall> calls;         /* the last ones */
  std::deque<std::string> unsolicited; /* lines for its second port; modem_tty.cpp takes them */
  ModemBehaviour behaviour;

  /* What a power cycle forgets */
  bool echo = true;
  std::string charset = "GSM";
  std::string memory[3] = {"SM", "SM", "SM"}; /* to read and delete, to write, to receive */
  std::map<std::string, int> settings;        /* of commands that keep a number, by name */
  std::string ussd_at;                        /* where the open dialogue is, "" for none */
  std::string line;                           /* the command so far, or the PDU */
  const AtRow *wants_pdu = nullptr;           /* the command that waits for it */
  std::vector<std::string> pdu_arguments;     /* and its arguments */
};

/* Unplugged or switched off and on. */
void ModemPowerCycle(Modem *modem);
