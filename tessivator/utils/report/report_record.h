// One entry of info.xml, and how a command of this program fails.
#pragma once

#include <array>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The elements of an entry, in the order in which they are written.
enum class ReportField : std::uint8_t { Name, Sha1, Sha256, Company, Installer, Product, Version };
inline constexpr std::array<std::string_view, 7> REPORT_FIELDS{
    "Name", "SHA1", "SHA256", "companyName", "isInstaller", "productName", "productVersion"};

// What a certificate's file is named by: the 64 hexadecimal digits before ".cer", as bytes.
using CertificateName = std::array<std::uint8_t, 32>;

// Texts are UTF-8 and hold only what XML allows; digests are hexadecimal or empty.
struct ReportRecord {
  std::array<std::string, REPORT_FIELDS.size()> texts;
  std::array<bool, REPORT_FIELDS.size()> present{};  // a file without product information has no SHA256
  std::vector<CertificateName> certificates;

  [[nodiscard]] const std::string& operator[](ReportField field) const noexcept {
    return texts[static_cast<std::size_t>(field)];
  }
  [[nodiscard]] const std::string& name() const noexcept { return (*this)[ReportField::Name]; }
  [[nodiscard]] bool isInstaller() const noexcept { return (*this)[ReportField::Installer] == "yes"; }
  void clear() noexcept;
};

// What a scan says that it left out.
struct ReportOmissions {
  std::uint64_t directories = 0;
  std::uint64_t files = 0;
  bool endedEarly = false;

  [[nodiscard]] bool any() const noexcept { return directories != 0 || files != 0 || endedEarly; }
  void add(const ReportOmissions& other) noexcept;
  // "3 directories, 1 file"
  [[nodiscard]] std::string text() const;
  // Takes up what the comment "incomplete: ..." of a report says; any other comment says nothing.
  void read(std::string_view comment);
};

// The end of a command; the text is for its user.
class ReportError : public std::exception {
 public:
  explicit ReportError(std::u16string text) : text_(std::move(text)) {}
  [[nodiscard]] const std::u16string& text() const noexcept { return text_; }

 private:
  std::u16string text_;
};
