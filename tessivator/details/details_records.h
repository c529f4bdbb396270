// The lines of a details file (docs/details.md) as plain records.
//
// Texts are UTF-8, digests lower-case hexadecimal, times RFC 3339 in UTC; what is unknown is empty. Members that hold
// bytes say so: they stand in base64 in the file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// The form of the file: another one is not read.
inline constexpr std::uint64_t DETAILS_VERSION = 1;
// What the lines say of an unchanged file: raised whenever a scan would find something else in it than before.
inline constexpr std::uint64_t DETAILS_READING = 1;
inline constexpr std::string_view DETAILS_FORMAT = "brantle-details";
inline constexpr std::string_view DETAILS_FILE_NAME = "details.jsonl";
// A line in bytes with its line feed. What does not fit is left out, value by value, and counted.
inline constexpr std::size_t DETAILS_LARGEST_LINE = std::size_t{4} << 20U;
// The members of one line of a catalogue's members.
inline constexpr std::size_t DETAILS_LARGEST_MEMBERS = 4096;

struct details_digest {
  std::string algorithm;  // "sha1", "sha256" ...
  std::string value;
};

// What is wrong, or was left out, as a short code, and how often.
struct details_problem {
  std::string code;
  std::uint64_t count = 1;
};

struct details_request {
  std::string path;
  std::string path_bytes;  // bytes, as details_file::name_bytes
  bool share = false;      // connected with credentials
  bool all_certificates = false;
  bool digests = false;  // Authenticode digests were asked for
  std::string part;      // "2/8": this part of the files alone; empty for all
};

// The first line.
struct details_header {
  std::uint64_t version = DETAILS_VERSION;
  std::uint64_t reading = DETAILS_READING;
  std::string program;  // "brantle 1.0.0"
  std::string system;   // "linux" or "windows": decides what name_bytes are
  details_request request;
  std::string started;
};

// The values of the file's entry in the report, as they stand there. Its name is the line's.
struct details_record {
  bool bare = false;  // of a file with certificates alone: the entry has no SHA256
  std::string sha1;
  std::string sha256;
  std::string company_name;
  std::string is_installer;
  std::string product_name;
  std::string product_version;
};

// A certificate that the report lists for the file.
struct details_listed {
  std::string name;    // its file's, without ".cer"
  std::string sha256;  // of its DER; empty where that is unknown
};

struct details_value {
  std::string name;
  std::string value;
};

// A string table of the version resource.
struct details_version_table {
  std::uint64_t language = 0;
  std::uint64_t code_page = 0;
  std::vector<details_value> values;
};

struct details_image {
  std::uint64_t machine = 0;    // as the headers have it
  std::uint64_t subsystem = 0;  // idem
  std::string link_time;
  std::string fixed_file_version;  // "1.2.3.4"
  std::vector<details_version_table> version_tables;
  std::string installer_rule;  // which rule made it an installer; empty when none did
};

struct details_package {
  std::string product_code;
  std::string upgrade_code;
  std::string product_language;
  std::string package_code;
  std::string architecture;  // the template's first half
  std::string languages;     // its second
};

struct details_signer {
  std::string certificate;  // SHA-256 of its DER; empty when the signature does not carry it
  std::string issuer;       // RFC 4514; as the signer information names it
  std::string serial;
  std::string digest_algorithm;
  std::string key_algorithm;
  std::string program_name;
  std::string program_url;
};

struct details_stamp {
  std::string kind;  // "countersignature" or "rfc3161"
  std::string time;
  details_signer signer;
  std::vector<std::string> certificates;  // of a token: as details_signature's
};

struct details_signature {
  std::string content_type;  // dotted
  std::string digest_algorithm;
  std::optional<details_digest> signed_digest;
  std::optional<bool> signed_digest_matches;  // only where the file's own digest was made
  std::vector<details_signer> signers;
  std::vector<std::string> certificates;  // SHA-256 of each one's DER, in the signature's order
  std::vector<details_stamp> stamps;
  std::vector<details_signature> nested;
};

struct details_catalogue {
  std::uint64_t members = 0;
};

enum class details_kind : std::uint8_t { other, image, package, cabinet, catalogue };

// A regular file of the walk.
struct details_file {
  std::uint64_t ordinal = 0;  // among the files of the whole walk, from 0
  std::string name;           // as in the report
  // Bytes; the name itself where the report's text does not tell it: on Linux as the file system has it, on Windows in
  // UTF-16 little-endian. Empty elsewhere.
  std::string name_bytes;
  details_kind kind = details_kind::other;
  std::uint64_t size = 0;
  std::string modified;
  std::string changed;
  std::uint64_t file_number = 0;  // 0: the storage has none
  std::string read_at;            // when it was opened
  std::optional<details_record> record;
  std::vector<details_listed> certificates;  // in the report's order
  std::optional<details_image> image;
  std::optional<details_package> package;
  std::vector<details_signature> signatures;
  std::vector<details_digest> authenticode_digests;
  std::optional<details_catalogue> catalogue;
  std::vector<details_problem> problems;
  bool complete = false;  // all that had to be read was, nothing failed, nothing is cut, the file did not change
};

// A certificate: stands before the first line that names it, and may come again.
struct details_certificate {
  std::string sha256;
  std::string sha1;
  std::string tbs_sha1;  // of the signed part
  std::string tbs_sha256;
  std::string tbs_sha384;
  std::string subject;  // RFC 4514
  std::string issuer;
  std::string serial;
  std::string not_before;
  std::string not_after;
  std::string key_algorithm;
  std::uint64_t key_bits = 0;
  std::string key_curve;
  std::string signature_algorithm;
  std::vector<std::string> extended_usages;  // object identifiers with dots
  bool ca = false;
  bool self_issued = false;
  std::string common_name;  // of the subject
  std::string organization;
  std::string country;
  std::string registration;  // the subject's registration number
  std::string name;          // its file's, without ".cer", whether there is one or not
  std::string der;           // bytes
  std::vector<details_problem> problems;
};

// Up to 4,096 members of a catalogue: stands before the catalogue's own line.
struct details_members {
  std::uint64_t ordinal = 0;  // the catalogue's
  std::vector<details_digest> members;
};

// The last line.
struct details_end {
  std::string ended;
  std::uint64_t files = 0;  // lines of files
  std::uint64_t records = 0;
  std::uint64_t certificates = 0;  // names listed
  std::uint64_t left_out_directories = 0;
  std::uint64_t left_out_files = 0;
  bool ended_early = false;
  std::string info_sha256;  // of the report written with it; empty when there is none
};

using details_line = std::variant<details_header, details_file, details_certificate, details_members, details_end>;
