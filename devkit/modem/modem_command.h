// What the modem simulator's commands share: a call, its answer, and the rows in which each file of
// commands ends.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "modem_state.h"

struct AtCall {
  enum Form { RUN, SET, READ, TEST } form; /* AT+X, AT+X=..., AT+X?, AT+X=? */
  std::vector<std::string> arguments;      /* without their quotes */
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

enum class AtErrors { PLAIN, EQUIPMENT, MESSAGE }; /* how a command says no */

struct AtRow {
  const char *name;
  AtErrors errors;
  AtAnswer (*run)(Modem *modem, const AtCall &call);
  /* For commands with a PDU: `run` only looks at the arguments, this takes the PDU. */
  AtAnswer (*take_pdu)(Modem *modem, const AtCall &call);
};
