// The fixed argument sequences of the command line.
#include <algorithm>
#include <array>
#include <string_view>

#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"
#include "utils/signing/brantle/brantle.h"

namespace {

using Text = std::u16string_view;

enum Mode : std::uint32_t {
  mode_none = 0,
  mode_all = 1,
  mode_only = 2,
  mode_cab = 4,
  mode_share = 8,
  mode_access = 16
};

// Options from argument 3 on, and what they enable. After a sequence with mode_share come domain, user and password.
struct Sequence {
  std::array<Text, 4> options;
  std::uint32_t modes;
};

constexpr Sequence known_sequences[] = {
    {{u"-n"}, mode_share},
    {{u"-c"}, mode_share | mode_access},
    {{u"-A"}, mode_all},
    {{u"-A", u"-n"}, mode_all | mode_share},
    {{u"-A", u"-c"}, mode_all | mode_share | mode_access},
    {{u"-A", u"-O"}, mode_all | mode_only},
    {{u"-A", u"-O", u"-n"}, mode_all | mode_only | mode_share},
    {{u"-O"}, mode_only},
    {{u"-O", u"-n"}, mode_only | mode_share},
    {{u"-O", u"-c"}, mode_only | mode_share | mode_access},
    {{u"-O", u"-A"}, mode_only | mode_all},
    {{u"-O", u"-A", u"-n"}, mode_only | mode_all | mode_share},
    {{u"--cab", u"-O"}, mode_cab | mode_only},
    {{u"--cab", u"-O", u"-n"}, mode_cab | mode_only | mode_share},
    {{u"--cab", u"-O", u"-c"}, mode_cab | mode_only | mode_share | mode_access},
    {{u"--cab", u"-O", u"-A"}, mode_cab | mode_only | mode_all},
    {{u"--cab", u"-O", u"-A", u"-n"}, mode_cab | mode_only | mode_all | mode_share},
    {{u"--cab", u"-A", u"-O"}, mode_cab | mode_all | mode_only},
    {{u"--cab", u"-A", u"-O", u"-n"}, mode_cab | mode_all | mode_only | mode_share},
};

constexpr int first_option = 3;
constexpr int credential_count = 3;
constexpr int most_arguments = 9;

int optionCount(const Sequence& sequence) {
  const auto end = std::find(sequence.options.begin(), sequence.options.end(), Text());
  return static_cast<int>(end - sequence.options.begin());
}

// The longest sequence that the arguments start with: an unknown option ends the options silently, and so does one that
// no sequence has at its place ("-A" "-O" "-c" is "-A" "-O").
const Sequence* longestMatch(const qchar* const* argv, int argc) {
  const Sequence* best = nullptr;
  for (const Sequence& sequence : known_sequences) {
    const int count = optionCount(sequence);
    if (argc < first_option + count || (best != nullptr && count <= optionCount(*best))) continue;
    bool same = true;
    for (int i = 0; i < count && same; ++i) {
      same = sequence.options[static_cast<std::size_t>(i)] == argv[first_option + i];
    }
    if (same) best = &sequence;
  }
  return best;
}

std::int32_t usage(const qchar* program) {
  (void)qstr_console_printf(u"\n%s [<FILEPATH: filename|directory>] [OUTPUT PATH]", program);
  // NOLINTBEGIN(bugprone-suspicious-missing-comma): two of the pieces are longer than a source line
  static constexpr const qchar* lines[] = {
      u" [--cab] <-A> <-O> <-n|-c> [<DOMAIN>] [<USERNAME>]",
      u" [<PASSWORD>]\n\n",
      u"Dump the Installer Info [and/or] Extracts all certificates from Authenticode Signature.\n\n",
      u"  FILEPATH     specifies filename or directory name of the file to be processed. If a directory is "
      u"specified "
      u"certificates and information will be extracted recursively from all the files in the specified "
      u"folder\n\n",
      u"  OUTPUT PATH    Specifies directory to store certificates and/or installer Info.\n\n",
      u"--cab Specify this option if cert needs to beextracted from a cab file. -O option is necessary  if "
      u"--cab is "
      u"specified.\n\n",
      u"  -A             Optional, Use to extract all the ",
      u"certificates from installer/file. By default only ",
      u"root certificate is extracted.\n\n",
      u"  -O             Optional, Use if only the ",
      u"certificates are required and additional info is not ",
      u"required. Not optional if --cab is specified\n\n",
      u"  -c           \tUse to check whether the FILEPATH is accessible on the network\n\n",
      u"  -n           \tOptional, Use to Provide Authentication for the FILEPATH on the network. ",
      u"If -n option is specified FILEPATH should be ",
      u"a directory.\n\n",
      u"  DOMAIN, USERNAME, PASSWORD All need to be specified when -n or -c flag is passed\n\n",
      u" The certificates extracted will be stored in files named on the basis of SHA1 of Issuer & Serial "
      u"No.\n",
      u" The Installer Info is dumped in info.xml\n",
  };
  // NOLINTEND(bugprone-suspicious-missing-comma)
  for (const qchar* line : lines) (void)qstr_console_printf(line);
  return BRANTLE_USAGE;
}

}  // namespace

std::int32_t Brantle::parseArgs(const qchar* const* argv, int argc) {
  const bool echo = argc > 0 && Text(argv[argc - 1]) == u"-d";
  if (echo) {
    qlog_console_on();
  } else {
    qlog_console_off();
  }
  const qchar* program = argc > 0 ? argv[0] : u"";
  // The two longest sequences have one argument more than the limit allows; they end in the usage text.
  if (argc < first_option || argc > most_arguments + (echo ? 1 : 0)) return usage(program);

  const Sequence* sequence = longestMatch(argv, argc);
  if (sequence == nullptr && argc > first_option && Text(argv[first_option]) == u"--cab") return usage(program);
  const std::uint32_t modes = sequence != nullptr ? sequence->modes : mode_none;
  const int credentials = first_option + (sequence != nullptr ? optionCount(*sequence) : 0);
  if ((modes & mode_share) != 0 && argc < credentials + credential_count) return usage(program);

  allCerts = (modes & mode_all) != 0 ? 1 : 0;
  certsOnly = (modes & mode_only) != 0 ? 1 : 0;
  cabFile = (modes & mode_cab) != 0 ? 1 : 0;
  nwMode = (modes & mode_share) != 0 ? 1 : 0;
  checkAccess = (modes & mode_access) != 0 ? 1 : 0;
  setReposPath(argv[1]);
  setOutputPath(argv[2]);
  if (nwMode != 0) {
    setUserName(argv[credentials + 1]);
    setPassword(argv[credentials + 2]);
    setDomain(argv[credentials]);
  }
  return BRANTLE_OK;
}
