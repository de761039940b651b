// What can stand for the kinds of words that the verbs' rows name.
#pragma once

#include "completion.h"

Candidates CandidatesOfKind(const std::string &kind, const Typed &typed);
