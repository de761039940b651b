// The texts of the case files, and the records that a log has.
#pragma once

#include <string>
#include <vector>

#include "support.h"

struct Record {
  int level; /* 0: no record, a line of its own */
  std::string text, source;
};

/* A 32-bit word, signed or not, in the machine's byte order. */
std::string NativeWord(const std::string &number);

/* Escapes \n, \xHH and \wNUMBER; for a word, and {TEXT*COUNT} for a repeated text. */
std::string Expanded(const std::string &text);

/* Takes the first word off `line`. */
std::string Word(std::string *line);

Lines Split(const std::string &text, char separator);

/* "2026-11-24 21:35:21.123 default 4 open x failed!\n  @P:source/button_func,L:9.\n" and what was
   printed without a record. */
std::vector<Record> Records(std::string log);

/* Whether a text is the expected one, in which "..." stands for anything. */
bool Fits(const std::string &expected, const std::string &text);
