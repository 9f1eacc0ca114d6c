#pragma once
// tez's crash report. Once installed, a crash (SIGSEGV, SIGBUS, SIGFPE,
// SIGILL, SIGABRT) writes the fault's reason, the registers and the stack to
// standard error and to the log file, and a text dump
// "tez-crash-<yyyymmdd-hhmmss>-<pid>.txt" (the same, with the loaded modules
// and the top of the stack) to the log folder; then the process ends by the
// signal, as it would have without. A stack overflow prints its notice only.
// A log with buffering on (LOGBUFON) keeps the report in its buffer.

void TezInstallCrashReport();
