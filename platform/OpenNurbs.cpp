#include "platform/OpenNurbs.h"

// The B-rep layer keeps no process-wide state yet.
void ON_Begin() {}
void ON_End() {}
