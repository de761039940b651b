// Orders: an image that was fetched to /tmp is checked and flashed, one order at a time, and
// whoever polls is told how far it is.
//
//   order       "downloading", and it is at work; "occupied" while another order is
//   poll        "downloading" until the new image is on the disk beside the old one: "downloaded";
//               "fwchk_failed" of a damaged image, "upg_failed" when it cannot be written
//   "success"   the new image takes the old one's place: "success", the order's end
//   "timeout"   gives the order up
// An order whose orderer has said nothing for a while (order_patience) is given up when another one
// comes, and not before: a daemon that stands at a breakpoint goes on where it was. What makes no
// sense is answered with "other_failed", and so is a poll when no order is there.
#pragma once

#include "vermgt.h"

/* Seconds; an orderer that runs asks each 100 ms. */
extern int order_patience;

/* Message handlers of VERSION_ORDER and VERSION_STATE. */
void TakeOrder(int32_t id, const void *data, uint32_t length);
void TakeWord(int32_t id, const void *data, uint32_t length);

/* A text with its NUL to the sender of the message in work. 0, or -1 (logged): it does not wait. */
int AnswerSender(uint32_t id, const std::string &text);

/* How orders go from now on: "" or why there is no such behaviour. `amount`: the polls that are
   answered before it matters; of "halt" the process. */
std::string OrderBehave(const std::string &how, int amount);

/* The behaviour, how many orders were taken, the last one, and what is flashed. */
Json OrderState();
