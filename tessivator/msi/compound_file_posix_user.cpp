#include "msi/compound_file.h"

#include <dlfcn.h>
#include <gsf/gsf-infile-impl.h>
#include <gsf/gsf-input-impl.h>
#include <gsf/gsf.h>
#include <pthread.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>
#include <new>
#include <utility>

#include "common/qlib/qmem.h"
#include "msi/compound_check.h"

namespace {

// ---- Silence -------------------------------------------------------------------------------------------------------

thread_local unsigned quiet_depth = 0;

// While one lives, what libgsf has to say on this thread is dropped.
class quiet {
 public:
  quiet() noexcept { ++quiet_depth; }
  quiet(const quiet&) = delete;
  quiet& operator=(const quiet&) = delete;
  ~quiet() { --quiet_depth; }
};

void on_message(const gchar* domain, GLogLevelFlags level, const gchar* message, gpointer data) {
  if (quiet_depth == 0) g_log_default_handler(domain, level, message, data);
}

// Damaged files make libgsf warn; the host's standard error is not the place for that. The handlers stand for libgsf's
// own domains only, and hand what other threads cause to GLib's standard handler. They go when this library is
// unloaded.
class message_handlers {
 public:
  message_handlers() noexcept {
    for (std::size_t i = 0; i < domains.size(); ++i) {
      ids_[i] = g_log_set_handler(domains[i], static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK), on_message, nullptr);
    }
  }
  message_handlers(const message_handlers&) = delete;
  message_handlers& operator=(const message_handlers&) = delete;
  ~message_handlers() {
    for (std::size_t i = 0; i < domains.size(); ++i) g_log_remove_handler(domains[i], ids_[i]);
  }

 private:
  static constexpr std::array<const char*, 2> domains{"libgsf", "libgsf:msole"};
  std::array<guint, 2> ids_{};
};

// ---- Our file as libgsf's input ------------------------------------------------------------------------------------

using file_ptr = std::shared_ptr<msi_source>;

struct file_input {
  GsfInput base;
  file_ptr* file;
  GByteArray* buffer;
};

struct file_input_class {
  GsfInputClass base;
};

GType file_input_type = 0;
GObjectClass* parent_class = nullptr;

file_input* as_input(gpointer object) noexcept { return static_cast<file_input*>(object); }

file_input* new_input(const file_ptr& file) {
  auto owned = std::make_unique<file_ptr>(file);
  auto* input = as_input(g_object_new(file_input_type, nullptr));
  input->file = owned.release();
  // Sectors are whole; what the last one of a cut file lacks reads as zero. The largest sector has 4096 bytes.
  gsf_input_set_size(&input->base, static_cast<gsf_off_t>((file->size() + 4095) / 4096 * 4096));
  return input;
}

void input_finalize(GObject* object) {
  file_input* input = as_input(object);
  delete input->file;
  if (input->buffer != nullptr) g_byte_array_unref(input->buffer);
  parent_class->finalize(object);
}

GsfInput* input_dup(GsfInput* source, GError** /*error*/) {
  try {
    return &new_input(*as_input(source)->file)->base;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

bool read_or_zero(msi_source& file, std::uint64_t offset, std::span<std::byte> out) noexcept {
  const std::uint64_t rest = offset < file.size() ? file.size() - offset : 0;
  const auto available = static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), rest));
  std::ranges::fill(out.subspan(available), std::byte{0});
  return available == 0 || file.read(offset, out.first(available));
}

// libgsf asks for one sector, or for bytes of a stream into a buffer of its own. The buffer of ours has a zero behind
// the bytes, because libgsf looks for the end of a name in it.
const guint8* input_read(GsfInput* source, size_t count, guint8* destination) {
  file_input* input = as_input(source);
  if (destination == nullptr) {
    if (count >= std::numeric_limits<guint>::max()) return nullptr;
    if (input->buffer == nullptr) input->buffer = g_byte_array_new();
    g_byte_array_set_size(input->buffer, static_cast<guint>(count) + 1);
    destination = input->buffer->data;
    destination[count] = 0;
  }
  const std::span out(reinterpret_cast<std::byte*>(destination), count);
  if (!read_or_zero(**input->file, static_cast<std::uint64_t>(source->cur_offset), out)) return nullptr;
  return destination;
}

gboolean input_seek(GsfInput* /*input*/, gsf_off_t /*offset*/, GSeekType /*whence*/) { return FALSE; }

void class_init(gpointer klass, gpointer /*data*/) {
  auto* input_class = static_cast<file_input_class*>(klass);
  input_class->base.g_object_class.finalize = input_finalize;
  input_class->base.Dup = input_dup;
  input_class->base.Read = input_read;
  input_class->base.Seek = input_seek;
  parent_class = static_cast<GObjectClass*>(g_type_class_peek_parent(klass));
}

void instance_init(GTypeInstance* instance, gpointer /*klass*/) {
  file_input* input = as_input(instance);
  input->file = nullptr;
  input->buffer = nullptr;
}

// ---- Start ---------------------------------------------------------------------------------------------------------

// libgsf's types live as long as the process does, so libgsf must not be unloaded with us.
void keep_libgsf() noexcept {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&gsf_init), &info) != 0 && info.dli_fname != nullptr) {
    (void)dlopen(info.dli_fname, RTLD_NOW | RTLD_NODELETE | RTLD_NOLOAD);
  }
}

// A type cannot be taken back. Each load of this library into a process therefore brings a type of its own, under a
// name that is still free; types of earlier loads are never used again.
void register_input() {
  for (unsigned n = 0; file_input_type == 0 && n < 65536; ++n) {
    const std::string name = "TessivatorFileInput" + std::to_string(n);
    if (g_type_from_name(name.c_str()) != 0) continue;
    file_input_type =
        g_type_register_static_simple(GSF_INPUT_TYPE, g_intern_string(name.c_str()), sizeof(file_input_class),
                                      class_init, sizeof(file_input), instance_init, static_cast<GTypeFlags>(0));
  }
}

// Starts libgsf once in this load; false when that did not work.
bool start() {
  static std::once_flag once;
  std::call_once(once, [] {
    static message_handlers handlers;
    const quiet silence;
    keep_libgsf();
    gsf_init();
    register_input();
  });
  return file_input_type != 0;
}

// Whether this thread has `bytes` of stack left. Any thread is taken to have what small packages need; packages of
// hundreds of mebibytes are worth the question.
bool has_stack(std::size_t bytes) noexcept {
  constexpr std::size_t always = 160UL * 1024;
  if (bytes <= always) return true;
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return false;
  void* lowest = nullptr;
  std::size_t size = 0;
  const bool known = pthread_attr_getstack(&attributes, &lowest, &size) == 0;
  pthread_attr_destroy(&attributes);
  // Not the address of a local variable: AddressSanitizer keeps those on a stack of its own.
  const auto* const here = static_cast<const std::byte*>(__builtin_frame_address(0));
  return known && static_cast<std::size_t>(here - static_cast<const std::byte*>(lowest)) >= bytes;
}

// ---- Storage and streams -------------------------------------------------------------------------------------------

using InfilePtr = std::unique_ptr<GsfInfile, FreeWith<g_object_unref>>;
using ErrorPtr = std::unique_ptr<GError, FreeWith<g_error_free>>;
using InputPtr = std::unique_ptr<GsfInput, FreeWith<g_object_unref>>;

class gsf_stream final : public msi_source {
 public:
  explicit gsf_stream(InputPtr input) noexcept : input_(std::move(input)) {}
  ~gsf_stream() override {
    const quiet silence;
    input_.reset();
  }
  [[nodiscard]] std::uint64_t size() const noexcept override {
    const gsf_off_t bytes = gsf_input_size(input_.get());
    return bytes < 0 ? 0 : static_cast<std::uint64_t>(bytes);
  }
  [[nodiscard]] bool read(std::uint64_t offset, std::span<std::byte> out) noexcept override {
    if (offset > size() || out.size() > size() - offset) return false;
    if (out.empty()) return true;
    const quiet silence;
    return gsf_input_seek(input_.get(), static_cast<gsf_off_t>(offset), G_SEEK_SET) == FALSE &&
           gsf_input_read(input_.get(), out.size(), reinterpret_cast<guint8*>(out.data())) != nullptr;
  }

 private:
  InputPtr input_;
};

class gsf_file final : public compound_file {
 public:
  explicit gsf_file(InfilePtr file) noexcept : file_(std::move(file)) {}
  ~gsf_file() override {
    const quiet silence;
    file_.reset();
  }
  [[nodiscard]] class_id root_class() const noexcept override {
    class_id id{};
    const quiet silence;
    (void)gsf_infile_msole_get_class_id(GSF_INFILE_MSOLE(file_.get()), id.data());
    return id;
  }
  [[nodiscard]] std::unique_ptr<msi_source> stream(const std::string& utf8_name) override {
    const quiet silence;
    // Through the class: the function of that name prints its error under no domain at all.
    const auto* file_class = G_TYPE_INSTANCE_GET_CLASS(file_.get(), GSF_INFILE_TYPE, GsfInfileClass);
    GError* raw_error = nullptr;
    InputPtr input(file_class->child_by_name(file_.get(), utf8_name.c_str(), &raw_error));
    const ErrorPtr error(raw_error);
    // A storage of that name has children instead of bytes.
    if (!input || gsf_infile_num_children(GSF_INFILE(input.get())) >= 0) return nullptr;
    return std::make_unique<gsf_stream>(std::move(input));
  }

 private:
  InfilePtr file_;
};

}  // namespace

std::unique_ptr<compound_file> compound_open(const std::shared_ptr<msi_source>& file) {
  std::size_t stack = 0;
  if (!file || !compound_has_signature(*file) || !compound_is_sound(*file, stack)) return nullptr;
  if (!has_stack(stack) || !start()) return nullptr;
  const quiet silence;
  const InputPtr input(&new_input(file)->base);
  InfilePtr storage(gsf_infile_msole_new(input.get(), nullptr));
  if (!storage) return nullptr;
  return std::make_unique<gsf_file>(std::move(storage));
}
