// How the programs of the devkit read their command lines.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>

#include "completion.h"

/* "--timeout", in seconds, or what the environment has as GATEWAY_TIMEOUT. */
CLI::Option *AddTimeLimit(CLI::App *app, double *limit_s);

/* None: the program goes on. Else its exit status: help ("--help", "help VERB"), "NAME VERSION" or
   what "complete WORD..." asks for was printed, or wrong usage was told in one line. */
std::optional<int> ParseCommandLine(CLI::App *app, int argc, char **argv,
                                    const Completion &completion = {});
