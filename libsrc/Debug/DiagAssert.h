#pragma once
// The assertion reporter. TEZ_ASSERT(expression) checks in builds without
// NDEBUG, or where TEZ_ENABLE_ASSERT is defined; elsewhere it does not
// evaluate its expression.
//
// A failed assertion forms
//   "File : <file>\nLine : <line>\nExpression : <expression>"
// and reports, under the title "ASSERTION FAILURE...",
//   "Debug Assertion Failed!\n\nProgram : <program>\n<that text>\n"
//   "Last Error (0x<errno as 8 hex digits>) : <its message>\n"
// followed by the caller's stack, one call a line,
//   "<module>: <function> + <n> bytes\t\t<file>\t\tLine <n>"
// with "<unknown module>: " and "<unknown symbol>" where nothing is known.
// Where it goes is chosen by the options: standard error, the log (as an
// error), and the stack or not; with TezAssertAbort the process then ends
// by abort(). errno is left as it was.

#include "platform/Api.h"

enum TezDiagAssertOptions : unsigned {
    TezAssertShowStderr = 1,
    TezAssertShowLog = 2,
    TezAssertShowStack = 4,
    TezAssertAbort = 8,
    TezAssertDefaults = TezAssertShowStderr | TezAssertShowLog | TezAssertShowStack
};

// Returns the former options.
TEZ_API unsigned TezSetDiagAssertOptions(unsigned options);
TEZ_API unsigned TezGetDiagAssertOptions();

TEZ_API void TezDiagAssert(char const* expression, char const* file, int line);

#if !defined(NDEBUG) || defined(TEZ_ENABLE_ASSERT)
#    define TEZ_ASSERT(expression) ((expression) ? (void)0 : TezDiagAssert(#    expression, __FILE__, __LINE__))
#else
#    define TEZ_ASSERT(expression) ((void)0)
#endif
