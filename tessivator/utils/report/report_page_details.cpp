#include "utils/report/report_page_details.h"

#include <algorithm>

#include "utils/report/report_text.h"

namespace {

constexpr std::size_t max_text = std::size_t{64} << 10U;

// Builds objects and lists; what is empty is left out.
class Json {
 public:
  explicit Json(const CertificateBook& book) : book_(book) {}

  void text(std::string_view name, const std::string& value) {
    if (!value.empty()) appendJson(key(name), value);
  }
  void number(std::string_view name, std::uint64_t value) { key(name) += std::to_string(value); }

  template <class List, class Put>
  void list(std::string_view name, const List& items, Put&& put) {
    if (items.empty()) return;
    key(name) += '[';
    for (const auto& item : items) {
      if (!out_.ends_with('[')) out_ += ',';
      if (out_.size() > max_text) break;  // is thrown away
      object([&] { put(item); });
    }
    out_ += ']';
  }
  template <class Put>
  void object(Put&& put) {
    out_ += '{';
    put();
    out_ += '}';
  }

  void signer(const details_signer& signer) {
    if (const auto entry = book_.findDigest(signer.certificate)) number("certificate", entry->number);
    text("issuer", signer.issuer);
    text("serial", signer.serial);
    text("digest", signer.digest_algorithm);
    text("program", signer.program_name);
    text("address", signer.program_url);
  }
  void signature(const details_signature& signature) {
    text("digest", signature.digest_algorithm);
    if (signature.signed_digest_matches) number("matches", *signature.signed_digest_matches ? 1 : 0);
    list("signers", signature.signers, [&](const details_signer& one) { signer(one); });
    list("stamps", signature.stamps, [&](const details_stamp& stamp) {
      text("kind", stamp.kind);
      text("time", stamp.time);
      signer(stamp.signer);
    });
    list("nested", signature.nested, [&](const details_signature& nested) { this->signature(nested); });
  }
  void image(const details_image& image) {
    text("fileVersion", image.fixed_file_version);
    text("linked", image.link_time);
    text("installerRule", image.installer_rule);
    list("tables", image.version_tables, [&](const details_version_table& table) {
      number("language", table.language);
      number("codePage", table.code_page);
      list("values", table.values, [&](const details_value& value) {
        text("name", value.name);
        text("value", value.value);
      });
    });
  }
  void package(const details_package& package) {
    text("productCode", package.product_code);
    text("upgradeCode", package.upgrade_code);
    text("packageCode", package.package_code);
    text("productLanguage", package.product_language);
    text("architecture", package.architecture);
    text("languages", package.languages);
  }
  void digests(const std::vector<details_digest>& digests) {
    list("digests", digests, [&](const details_digest& digest) {
      text("algorithm", digest.algorithm);
      text("value", digest.value);
    });
  }
  void problems(const std::vector<details_problem>& problems) {
    list("problems", problems, [&](const details_problem& problem) {
      text("code", problem.code);
      number("count", problem.count);
    });
  }

  [[nodiscard]] std::string take() { return std::move(out_); }

 private:
  std::string& key(std::string_view name) {
    if (!out_.ends_with('{')) out_ += ',';
    return out_.append("\"").append(name).append("\":");
  }
  const CertificateBook& book_;
  std::string out_;
};

}  // namespace

std::string pageDetailsOf(const details_file& file, const CertificateBook& book) {
  Json json(book);
  json.object([&] {
    json.list("signatures", file.signatures, [&](const details_signature& one) { json.signature(one); });
    json.digests(file.authenticode_digests);
    if (file.image) json.image(*file.image);
    if (file.package) json.package(*file.package);
    if (file.catalogue) json.number("members", file.catalogue->members);
    json.problems(file.problems);
  });
  std::string text = json.take();
  if (text == "{}") return {};
  return text.size() <= max_text ? text : R"({"isCut":true})";
}
