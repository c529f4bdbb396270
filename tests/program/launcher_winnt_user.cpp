// Runs the program of its command line and prints that program's whole exit code: Wine hands a shell eight bits of it.
#include <windows.h>

#include <cstdio>
#include <string>

extern "C" int wmain(int argc, wchar_t** argv);

namespace {

// The rest of our own command line behind the first argument, which is our name.
const wchar_t* behindName(const wchar_t* line) {
  const wchar_t end = *line == L'"' ? L'"' : L' ';
  if (*line == L'"') ++line;
  while (*line != L'\0' && *line != end) ++line;
  while (*line == L'"' || *line == L' ') ++line;
  return line;
}

}  // namespace

int wmain(int argc, wchar_t** /*argv*/) {
  if (argc < 2) return 2;
  const wchar_t* all = GetCommandLineW();
  const wchar_t* rest = behindName(all);
  // The quote of a quoted program name was taken with the blanks before it.
  std::wstring line = rest > all && rest[-1] == L'"' ? L'"' + std::wstring(rest) : std::wstring(rest);
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process{};
  if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process) == 0) {
    std::fprintf(stderr, "cannot start: error %lu\n", GetLastError());
    return 2;
  }
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  std::fprintf(stderr, "exit code %ld\n", static_cast<long>(code));
  return 0;
}
