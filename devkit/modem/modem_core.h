// The modem simulator's inside: bytes in, bytes out, and what the modem keeps. No tty, no socket
// and no clock, which are modem.cpp's, so that tests drive it directly. One thread.
#pragma once

#include <ctime>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/* ---- what it keeps ---- */

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
  enum Kind { kNormal, kSlow, kRefuse, kGarbage, kDrop } kind = kNormal;
  int amount = 0;   /* kSlow: milliseconds; kRefuse: the error's number, 0 for the usual one */
  std::string only; /* the one command it is for, as "+CMGS"; "" for all */
};

struct AtRow;

struct Modem {
  /* The SIM and the network */
  std::string number = "+8613900000001"; /* its own: what is sent there comes back */
  std::string centre = "+8613800100500"; /* of the service */
  std::map<std::string, ModemStorage> storages = {{"SM", {50, {}}}, {"ME", {100, {}}}};
  std::map<int, ModemContact> contacts; /* from 1 to contacts_size */
  size_t contacts_size = 250;
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
  std::deque<std::string> unsolicited; /* lines for its second port; modem.cpp takes them */
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

/* ---- the tty's side ---- */

struct ModemOutput {
  std::string echo;        /* at once */
  std::string answer;      /* "" when no command ended */
  bool misbehaves = false; /* kSlow and kDrop are for this answer: the caller's business */
};

/* Takes bytes up to the end of the first command or PDU among them, and says how many. `now` is for
   time stamps. */
size_t ModemFeed(Modem *modem, std::string_view bytes, time_t now, ModemOutput *output);

/* Unplugged or switched off and on. */
void ModemPowerCycle(Modem *modem);

/* ---- the network's side (modem_sms) ---- */

enum { kModemWaitingMax = 1000 };

/* A message for this modem: where it landed as "SM 3", "" while it waits for room. */
std::string ModemReceive(Modem *modem, const std::string &pdu);
std::string ModemDeliverWaiting(Modem *modem); /* the same of the last one that waited */

/* A text from a number or name, in as many parts as it needs: their PDUs into `pdus`. NULL, or why
   there are none. */
const char *ModemDeliverText(Modem *modem, const std::string &from, const std::string &text,
                             time_t when, std::vector<std::string> *pdus);

/* ---- commands ---- */

struct AtCall {
  enum Form { kRun, kSet, kRead, kTest } form; /* AT+X, AT+X=..., AT+X?, AT+X=? */
  std::vector<std::string> arguments;          /* without their quotes */
  time_t now;
  std::string pdu;
};

struct AtAnswer {
  std::vector<std::string> lines;
  std::string result = "OK";
  std::string why = ""; /* for whoever looks at the modem: the tty has no place for it */
};

/* Equipment and message errors; 3GPP TS 27.007 and 27.005 list the numbers. */
AtAnswer AtEquipmentError(int number);
AtAnswer AtMessageError(int number);
AtAnswer AtError();

/* A number that is all of `text`, within bounds: true. */
bool AtNumber(const std::string &text, int least, int most, int *number);

/* Texts go over the tty in the selected character set. */
std::string AtText(const Modem &modem, const std::string &utf8);
bool AtTextFrom(const Modem &modem, const std::string &text, std::string *utf8);

enum class AtErrors { kPlain, kEquipment, kMessage }; /* how a command says no */

struct AtRow {
  const char *name;
  AtErrors errors;
  AtAnswer (*run)(Modem *modem, const AtCall &call);
  /* For commands with a PDU: `run` only looks at the arguments, this takes the PDU. */
  AtAnswer (*take_pdu)(Modem *modem, const AtCall &call);
};

const AtRow *FindAtRow(const std::string &name);

AtAnswer AtMessageFormat(Modem *modem, const AtCall &call);
AtAnswer AtServiceCentre(Modem *modem, const AtCall &call);
AtAnswer AtStorages(Modem *modem, const AtCall &call);
AtAnswer AtListMessages(Modem *modem, const AtCall &call);
AtAnswer AtReadMessage(Modem *modem, const AtCall &call);
AtAnswer AtDeleteMessage(Modem *modem, const AtCall &call);
AtAnswer AtSendArguments(Modem *modem, const AtCall &call);
AtAnswer AtSend(Modem *modem, const AtCall &call);
AtAnswer AtWriteArguments(Modem *modem, const AtCall &call);
AtAnswer AtWrite(Modem *modem, const AtCall &call);

AtAnswer AtPhonebook(Modem *modem, const AtCall &call);
AtAnswer AtReadContacts(Modem *modem, const AtCall &call);
AtAnswer AtWriteContact(Modem *modem, const AtCall &call);
AtAnswer AtUssd(Modem *modem, const AtCall &call);
