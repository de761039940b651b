// The daemon's modules running in this process, requests to them, and what they send out. Any
// thread.
#pragma once

#include <cstdint>
#include <string>

#include "appt_request.h"

/* Starts the modules of the daemon and beside them the peer "msgcenter:cAckAgt", which records;
   returns when their start is over. Once in a process. */
void StartWithPeers();

/* What one of the recording peers got. */
struct PeerMessage {
  std::string peer, sender, payload;
  uint32_t id;
};

/* Takes out the oldest message `id` that a peer got, waiting for it; a minute later the test fails.
 */
PeerMessage AwaitMessage(uint32_t id);

/* A request frame as the data-base manager sends it, and its way to a module. */
std::string RequestFrame(uint32_t chain, uint32_t command, const std::string &url,
                         const std::string &value = "");
void Send(const std::string &module, uint32_t id, const std::string &payload);

/* Sends the request and waits for its acknowledgement. */
struct Ack {
  uint32_t chain, command, code;
  int32_t result;
  std::string value; /* without the NUL */
};
Ack Request(const std::string &module, uint32_t command, const std::string &url,
            const std::string &value = "");
Ack ParseAck(const std::string &payload);

/* No message has come. */
void ForgetMessages();
