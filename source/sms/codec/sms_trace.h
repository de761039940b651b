// The trace of the short-message routines, for whoever looks into a modem's trouble in the field.
#pragma once

/* Does nothing until the file /var/sms_debug is there. Then the line goes to standard output and,
   appended, to /var/sms_log, as "----FUNCTION, LINE----   " and the text; `format` is printf's.
   Nothing ends the line: not every text does. Any thread; lines of several may mix. */
void SmsTrace(const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

#define SMS_TRACE(...) SmsTrace(__func__, __LINE__, __VA_ARGS__)
