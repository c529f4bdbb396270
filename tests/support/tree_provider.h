// A file tree in memory for walk tests: links of any kind and sizes that a disk of the test machine need not offer.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/refusing_provider.h"
#include "support/replaced.h"

// Puts itself before all providers while it lives. Nodes are numbered; a directory maps names to nodes, and a link is
// an entry that names a node which stands elsewhere, too. Node 0 is the root of a share.
class tree_provider final : public refusing_provider, replaced<qfile_set_provider> {
 public:
  enum class kind : std::uint8_t { plain, symlink, junction, placeholder };

  tree_provider() : replaced(this) {}

  int directory() {
    nodes_.emplace_back();
    return static_cast<int>(nodes_.size()) - 1;
  }
  void add(int in, const std::u16string& name, int node = -1, kind how = kind::plain) {
    nodes_[static_cast<std::size_t>(in)].push_back({name, node, how});
  }

  static constexpr const qchar* root_path = u"\\\\server\\share";
  bool identities = true;

  qsys_status list(const qfile_listing& wanted, std::unique_ptr<qfile_search>& out) override {
    std::u16string path(wanted.path);
    if (path.ends_with(u'\\')) path.pop_back();
    const auto found = reached_.find(path);
    if (found == reached_.end() && path != root_path) return missing();
    const int node = found == reached_.end() ? 0 : found->second;
    const std::vector<item>& items = nodes_[static_cast<std::size_t>(node)];
    for (const item& one : items) {
      if (one.node >= 0) reached_[path + u'\\' + one.name] = one.node;
    }
    out = std::make_unique<listing>(items, identities ? node : -1);
    return {};
  }

 private:
  struct item {
    std::u16string name;
    int node = -1;  // of a directory
    kind how = kind::plain;
  };

  class listing final : public qfile_search {
   public:
    listing(std::vector<item> items, int node) : items_(std::move(items)), node_(node) {}
    bool identity(qfile_identity& out) const noexcept override {
      out = {1, static_cast<std::uint64_t>(node_), 0};
      return node_ >= 0;
    }
    qsys_status next(qfile_entry& entry) override {
      if (taken_ == items_.size()) return {QERR_END, qsys_condition::end_of_directory};
      const item& one = items_[taken_++];
      entry.name = one.name;
      entry.is_directory = one.node >= 0;
      entry.is_reparse = one.how != kind::plain;
      entry.is_symlink = one.how == kind::symlink;
      entry.is_link = one.how == kind::symlink || one.how == kind::junction;
      return {};
    }

   private:
    std::vector<item> items_;
    int node_;
    std::size_t taken_ = 0;
  };

  std::vector<std::vector<item>> nodes_;
  std::map<std::u16string, int> reached_;  // directories by path, as far as they were listed
};
