// A file tree in memory for walk tests: links of any kind and sizes that a disk of the test machine need not offer.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/refusing_provider.h"
#include "support/replaced.h"

// Puts itself before all providers while it lives. Nodes are numbered; a directory maps names to nodes, and a link is
// an entry that names a node which stands elsewhere, too.
class tree_provider final : public refusing_provider, replaced<qfile_set_provider> {
 public:
  enum class kind : std::uint8_t { plain, symlink, junction, placeholder };

  tree_provider() : replaced(this) {}

  int directory() {
    nodes_.emplace_back();
    return static_cast<int>(nodes_.size()) - 1;
  }
  void add_directory(int in, const std::u16string& name, int node, kind how = kind::plain) {
    node_at(in).push_back({name, node, how});
  }
  void add_file(int in, const std::u16string& name) { node_at(in).push_back({name, -1, kind::plain}); }

  // The path under which node 0 stands; everything else is found below it.
  std::u16string root_path;
  bool identities = true;

  qsys_status search(const qchar* pattern, std::unique_ptr<qfile_search>& out) override {
    if (pattern != root_path) return missing();
    out = std::make_unique<listing>(
        std::vector<item>{{root_path.substr(root_path.find_last_of(u"/\\") + 1), 0, kind::plain}});
    return {};
  }
  qsys_status list(const qfile_listing& wanted, std::unique_ptr<qfile_search>& out) override {
    const int node = find(wanted.path);
    if (node < 0) return missing();
    out = std::make_unique<listing>(node_at(node), identities ? node : -1);
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
    explicit listing(std::vector<item> items, int node = -1) : items_(std::move(items)), node_(node) {}
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

  std::vector<item>& node_at(int number) { return nodes_[static_cast<std::size_t>(number)]; }

  int find(std::u16string_view path) {
    if (!path.starts_with(root_path)) return -1;
    path.remove_prefix(root_path.size());
    int node = 0;
    while (!path.empty() && node >= 0) {
      const std::size_t end = path.find_first_of(u"/\\");
      const std::u16string_view name = path.substr(0, end);
      path = end == std::u16string_view::npos ? std::u16string_view() : path.substr(end + 1);
      if (name.empty()) continue;
      int next = -1;
      for (const item& one : node_at(node)) {
        if (one.name == name) next = one.node;
      }
      node = next;
    }
    return node;
  }

  std::vector<std::vector<item>> nodes_;
};
