// The kt tool's commands; each takes the arguments after its name and
// returns an exit status (or throws cli::UsageError / cli::RunError).
#pragma once

#include "cli.h"

int runBase64(cli::Arguments& args);
int runDemo(cli::Arguments& args);
int runFetch(cli::Arguments& args);
int runHex(cli::Arguments& args);
int runServe(cli::Arguments& args);
int runUrl(cli::Arguments& args);
