// The console front end: the command loop, its commands, and the stress test.
#pragma once

#include "brenlo/src/system.h"

/// The program without its process: constructs the System, then prints the report (the single
/// argument "print") or reads commands from standard input until a quit word or its end.
/// Returns the exit status, always 0.
[[nodiscard]] int run_kadrix(int argument_count, const char* const* arguments);

/// The prompt: carries out the commands of standard input on a System, until a quit word or the
/// input's end.
void run_console(System& system);

/// Asks the stress test that runs to end once the operation in hand is finished. False, without
/// effect, when none runs or it was asked already. For handlers of signals, in any thread.
[[nodiscard]] bool interrupt_stress();

/// Adds a run of consecutive addresses to an adapter and deletes them again, `iterations` times.
/// The texts are as the operator typed them; `name` may be null. Returns 0 when all iterations have
/// run, -1 when the command ended early, which it has then reported: a bad start or count, an
/// address that could not be added or deleted, an interruption. What was added by then stays.
int run_stress(System& system, const char* name, const char* iterations, const char* addresses,
               const char* start, const char* mask);
