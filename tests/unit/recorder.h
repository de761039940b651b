// The stand-ins for the shell, the runtime and the clock: what the daemon's code asks of them is
// recorded, and answered as a test says. Any thread, unless it says "this thread".
#pragma once

#include <functional>
#include <string>
#include <vector>

using Lines = std::vector<std::string>;

/* The lines given to system() and popen() since the last call, in order, and forgets them. */
std::vector<std::string> TakeCommands();

/* As TakeCommands, once the line `last` has been run; a minute later the test fails. */
std::vector<std::string> AwaitCommand(const std::string &last);

/* Output of the next popen() that has none yet; without any, output is empty. */
void AnswerPopen(std::string output);

/* The next popen() that has no answer yet fails. */
void FailPopen();

/* Called with each line given to system() from now on that the shell does not really run, to leave
   what the line would leave. Until the end of the test. */
void OnSystem(std::function<void(const std::string &line)> answer);

/* What the next system() that has no result yet gives back, with `error` in errno. Without any it
   gives 0 and leaves errno alone. */
void AnswerSystem(int status, int error);

/* What was said of next ones (AnswerPopen to FailThread) and nothing has asked for. */
void ForgetAnswers();

/* Called in place of each tds_delay() of this thread from now on, so that what it waits for comes
   when the test says, and time decides nothing. Until the end of the test. */
void OnDelay(std::function<void()> instead);

/* What this thread asks of the runtime and of the clock (timers, messages, registrations, waits) is
   recorded from now on with the lines given to the shell, such as "SetTimer(1, 300)", and not done.
   Until the end of the test. */
void RecordRuntime();

/* What the next recorded synchronous call is answered; without any it fails. */
void AnswerCall(const std::string &reply);

/* The next thread that this one wants cannot be had. */
void FailThread();

/* Whether the shell really runs the lines, after recording them. Off at the start of a test. */
void RunCommands(bool really);

/* As at the start of a test: nothing is recorded, answered or really run. */
void ForgetRecord();
