// PDUs of the modem simulator: checked as a modem checks what it is given, and turned from what is
// sent (SMS-SUBMIT) into what is received (SMS-DELIVER of 3GPP TS 23.040). Pure. The alphabets are
// the gateway's own codec's.
#pragma once

#include <ctime>
#include <string>

/* Octets are kept in strings. */
std::string Ucs2FromUtf8(const std::string &utf8);
std::string Utf8FromUcs2(const std::string &octets);
std::string AsciiFromUtf8(const std::string &utf8); /* "?" for what is none */
/* Packed; `septets` gets how many. */
std::string SeptetsFromUtf8(const std::string &utf8, size_t *septets = nullptr);

/* What a modem looks at. */
struct SubmitPdu {
  size_t centre_octets; /* the service centre's address, with its length */
  unsigned char first;  /* first octet of the TPDU */
  std::string number;   /* destination, with a "+" when it is international */
  std::string fields;   /* TP-PID, TP-DCS */
  std::string data;     /* TP-UDL and TP-UD */
};

/* NULL; else why the octets are no SMS-SUBMIT, or which of its lengths does not fit them. */
const char *ParseSubmit(const std::string &octets, SubmitPdu *submit);

/* "part 2 of 3 to +10010" of a message that is a part of a longer one; "" of what is none. */
std::string PartOf(const std::string &octets);

/* Octets of the service centre's address with its length; at most `octets` has. */
size_t CentreOctets(const std::string &octets);

/* The SMS-DELIVER, as hexadecimal text, that comes of it at the other end. `from` is a number, with
   a "+" when it is international, or a name of 11 characters; `when` is Greenwich's. */
std::string DeliverPdu(const SubmitPdu &submit, const std::string &centre, const std::string &from,
                       const struct tm &when);
