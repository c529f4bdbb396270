// Which key of a line is which member of its record: the one place that writer and reader go by, in the order in which
// the keys are written. A visitor has
//
//   needed, number, flag       a text, number or truth value that is always there
//   text, decimal              a text that is left out when empty; a number as text, left out when 0
//   bytes                      bytes in base64, left out when empty
//   object, list               records and lists of them or of texts; an empty one is left out
//   kind                       the name of a kind of file
//   problems                   what was wrong; the writer adds what it has left out
#pragma once

#include <concepts>
#include <type_traits>

#include "details/details_records.h"

template <class T, class Record>
concept details_is = std::same_as<std::remove_const_t<T>, Record>;

void details_fields(auto& v, details_is<details_digest> auto& it) {
  v.needed("algorithm", it.algorithm);
  v.needed("value", it.value);
}

void details_fields(auto& v, details_is<details_problem> auto& it) {
  v.needed("code", it.code);
  v.number("count", it.count);
}

void details_fields(auto& v, details_is<details_request> auto& it) {
  v.needed("path", it.path);
  v.bytes("path_bytes", it.path_bytes);
  v.flag("share", it.share);
  v.flag("all_certificates", it.all_certificates);
  v.flag("digests", it.digests);
  v.text("part", it.part);
}

void details_fields(auto& v, details_is<details_header> auto& it) {
  v.number("version", it.version);
  v.number("reading", it.reading);
  v.needed("program", it.program);
  v.needed("system", it.system);
  v.object("request", it.request);
  v.needed("started", it.started);
}

void details_fields(auto& v, details_is<details_record> auto& it) {
  v.flag("bare", it.bare);
  v.text("sha1", it.sha1);
  v.text("sha256", it.sha256);
  v.text("company_name", it.company_name);
  v.text("is_installer", it.is_installer);
  v.text("product_name", it.product_name);
  v.text("product_version", it.product_version);
}

void details_fields(auto& v, details_is<details_listed> auto& it) {
  v.needed("name", it.name);
  v.text("sha256", it.sha256);
}

void details_fields(auto& v, details_is<details_value> auto& it) {
  v.needed("name", it.name);
  v.needed("value", it.value);
}

void details_fields(auto& v, details_is<details_version_table> auto& it) {
  v.number("language", it.language);
  v.number("code_page", it.code_page);
  v.list("values", it.values);
}

void details_fields(auto& v, details_is<details_image> auto& it) {
  v.number("machine", it.machine);
  v.number("subsystem", it.subsystem);
  v.text("link_time", it.link_time);
  v.text("fixed_file_version", it.fixed_file_version);
  v.list("version_tables", it.version_tables);
  v.text("installer_rule", it.installer_rule);
}

void details_fields(auto& v, details_is<details_package> auto& it) {
  v.text("product_code", it.product_code);
  v.text("upgrade_code", it.upgrade_code);
  v.text("product_language", it.product_language);
  v.text("package_code", it.package_code);
  v.text("architecture", it.architecture);
  v.text("languages", it.languages);
}

void details_fields(auto& v, details_is<details_signer> auto& it) {
  v.text("certificate", it.certificate);
  v.text("issuer", it.issuer);
  v.text("serial", it.serial);
  v.text("digest_algorithm", it.digest_algorithm);
  v.text("key_algorithm", it.key_algorithm);
  v.text("program_name", it.program_name);
  v.text("program_url", it.program_url);
}

void details_fields(auto& v, details_is<details_stamp> auto& it) {
  v.needed("kind", it.kind);
  v.text("time", it.time);
  v.object("signer", it.signer);
  v.list("certificates", it.certificates);
}

void details_fields(auto& v, details_is<details_signature> auto& it) {
  v.text("content_type", it.content_type);
  v.text("digest_algorithm", it.digest_algorithm);
  v.object("signed_digest", it.signed_digest);
  v.flag("signed_digest_matches", it.signed_digest_matches);
  v.list("signers", it.signers);
  v.list("certificates", it.certificates);
  v.list("stamps", it.stamps);
  v.list("nested", it.nested);
}

void details_fields(auto& v, details_is<details_catalogue> auto& it) { v.number("members", it.members); }

void details_fields(auto& v, details_is<details_file> auto& it) {
  v.number("ordinal", it.ordinal);
  v.needed("name", it.name);
  v.bytes("name_bytes", it.name_bytes);
  v.kind("kind", it.kind);
  v.number("size", it.size);
  v.text("modified", it.modified);
  v.text("changed", it.changed);
  v.decimal("file_number", it.file_number);
  v.needed("read_at", it.read_at);
  v.object("record", it.record);
  v.list("certificates", it.certificates);
  v.object("image", it.image);
  v.object("package", it.package);
  v.list("signatures", it.signatures);
  v.list("authenticode_digests", it.authenticode_digests);
  v.object("catalogue", it.catalogue);
  v.problems("problems", it.problems);
  v.complete("complete", it.complete);
}

void details_fields(auto& v, details_is<details_certificate> auto& it) {
  v.needed("sha256", it.sha256);
  v.text("sha1", it.sha1);
  v.text("tbs_sha1", it.tbs_sha1);
  v.text("tbs_sha256", it.tbs_sha256);
  v.text("tbs_sha384", it.tbs_sha384);
  v.text("subject", it.subject);
  v.text("issuer", it.issuer);
  v.text("serial", it.serial);
  v.text("not_before", it.not_before);
  v.text("not_after", it.not_after);
  v.text("key_algorithm", it.key_algorithm);
  v.number("key_bits", it.key_bits);
  v.text("key_curve", it.key_curve);
  v.text("signature_algorithm", it.signature_algorithm);
  v.list("extended_usages", it.extended_usages);
  v.flag("ca", it.ca);
  v.flag("self_issued", it.self_issued);
  v.text("common_name", it.common_name);
  v.text("organization", it.organization);
  v.text("country", it.country);
  v.text("registration", it.registration);
  v.text("name", it.name);
  v.bytes("der", it.der);
  v.problems("problems", it.problems);
}

void details_fields(auto& v, details_is<details_members> auto& it) {
  v.number("ordinal", it.ordinal);
  v.list("members", it.members);
}

void details_fields(auto& v, details_is<details_end> auto& it) {
  v.needed("ended", it.ended);
  v.number("files", it.files);
  v.number("records", it.records);
  v.number("certificates", it.certificates);
  v.number("left_out_directories", it.left_out_directories);
  v.number("left_out_files", it.left_out_files);
  v.flag("ended_early", it.ended_early);
  v.text("info_sha256", it.info_sha256);
}

// What "type" a line has.
template <class Record>
inline constexpr std::string_view details_type = "";
template <>
inline constexpr std::string_view details_type<details_header> = "header";
template <>
inline constexpr std::string_view details_type<details_file> = "file";
template <>
inline constexpr std::string_view details_type<details_certificate> = "certificate";
template <>
inline constexpr std::string_view details_type<details_members> = "members";
template <>
inline constexpr std::string_view details_type<details_end> = "end";

inline constexpr std::string_view details_kind_names[] = {"other", "image", "package", "cabinet", "catalogue"};

// Arrays and objects inside each other that a line may have, its own braces counted.
inline constexpr int details_deepest = 32;
// Keys and values of a line, each of them counted: in memory every one takes more than in the file.
inline constexpr std::size_t details_most_values = 262144;
