// Process entry point; wchar_t has the form of our text.
#include "utils/signing/brantle/brantle_cli.h"

extern "C" int wmain(int argc, wchar_t** argv);

int wmain(int argc, wchar_t** argv) { return brantle_cli_run(reinterpret_cast<const qchar* const*>(argv), argc); }
