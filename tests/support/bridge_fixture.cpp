// Everything lives in the header; this keeps it compiling on its own.
#include "support/bridge_fixture.h"
