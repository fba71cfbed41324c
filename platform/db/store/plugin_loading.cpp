#include "platform/db/store/internal/plugin_loading.h"

#include <dlfcn.h>
#include <fcntl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/db/store/internal/flat_files.h"
#include "platform/db/store/internal/found_tables.h"
#include "platform/elog/failure.h"
#include "platform/pf/pf.h"
#include "platform/stock/files.h"

namespace ksutil::db {
namespace {

constexpr std::size_t kMaxStoreName = 40;

struct Plugins {
  std::mutex mutex;  // guards `known`; held while one is loaded
  std::map<std::string, const StorePlugin *> known;
};

/* Never destroyed: databases may be opened while the process exits. */
Plugins &plugins() {
  static Plugins &instance = *new Plugins;
  return instance;
}

bool is_store_name(const std::string &name) {
  return !name.empty() && name.size() <= kMaxStoreName &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
         });
}

/* The folder `ksutil` beside the file that holds this function. */
std::string own_folder() {
  Dl_info found;
  if (::dladdr(reinterpret_cast<void *>(&own_folder), &found) == 0 ||
      found.dli_fname == nullptr) {
    return "";
  }
  const std::string file = found.dli_fname;
  const std::size_t slash = file.rfind('/');
  return slash == file.npos ? "" : file.substr(0, slash + 1) + "ksutil";
}

std::vector<std::string> folders() {
  std::vector<std::string> found;
  const char *const given = ::secure_getenv("KSUTIL_STORE_PATH");
  const std::string path = given == nullptr ? "" : given;
  for (std::size_t from = 0; from < path.size();) {
    const std::size_t end = std::min(path.find(':', from), path.size());
    if (end > from) found.push_back(path.substr(from, end - from));
    from = end + 1;
  }
  const std::string own = own_folder();
  if (!own.empty()) found.push_back(own);
  return found;
}

const StorePlugin *load(const std::string &file) {
  void *const library = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    const char *const cause = ::dlerror();
    return fail("dbopen", "Cannot load %s: %s", file.c_str(),
                cause == nullptr ? "unknown cause" : cause);
  }
  void *const symbol = ::dlsym(library, "ksutil_store_plugin");
  const StorePlugin *const plugin =
      symbol == nullptr ? nullptr : reinterpret_cast<StorePluginFunction>(symbol)();
  if (plugin == nullptr) {
    ::dlclose(library);
    return fail("dbopen", "%s is not a store for databases", file.c_str());
  }
  if (plugin->version != kStorePluginVersion) {
    const int version = plugin->version;
    ::dlclose(library);
    return fail("dbopen", "%s is of version %d, this library takes version %d",
                file.c_str(), version, kStorePluginVersion);
  }
  return plugin;
}

/* Writes the descriptor; false, with a message and no file left behind. */
bool write_descriptor(const StoreDescriptor &descriptor) {
  const std::unique_ptr<Pf, void (*)(Pf *)> tree(pfnew(), pffree);
  if (tree == nullptr) return fail_memory("dbcreate");
  const std::pair<const char *, const std::string *> words[] = {
      {"schema", &descriptor.schema},
      {"store", &descriptor.store},
      {"connection", &descriptor.connection}};
  for (const auto &[word, value] : words) {
    if (!value->empty() && pfput_string(tree.get(), word, value->c_str()) != 0) {
      return fail("dbcreate", "Cannot write %s", descriptor.name.c_str());
    }
  }
  const std::unique_ptr<char, void (*)(void *)> written(pf2string(tree.get()), free);
  if (written == nullptr) return fail_memory("dbcreate");
  const std::string text = written.get();
  const FileHandle file = open_file(descriptor.name, O_WRONLY | O_CREAT | O_EXCL, 0666);
  if (!file) return fail_errno("dbcreate", "Cannot make %s", descriptor.name.c_str());
  if (write_all(file.get(), text.data(), text.size()) !=
      static_cast<ssize_t>(text.size())) {
    fail_errno("dbcreate", "Cannot write %s", descriptor.name.c_str());
    ::remove(descriptor.name.c_str());
    return false;
  }
  return true;
}

}  // namespace

const StorePlugin *find_plugin(const std::string &store) {
  if (!is_store_name(store)) {
    return fail("dbopen",
                "\"%s\" is not a name of a store: lower-case letters, digits and _",
                store.c_str());
  }
  Plugins &all = plugins();
  const std::lock_guard lock(all.mutex);
  const auto known = all.known.find(store);
  if (known != all.known.end()) return known->second;
  const std::string file = "ksutil_store_" + store + ".so";
  std::string places;
  for (const std::string &folder : folders()) {
    const std::string path = folder + "/" + file;
    places += (places.empty() ? "" : ", ") + folder;
    if (!is_file(path)) continue;
    const StorePlugin *const plugin = load(path);
    if (plugin != nullptr) all.known.emplace(store, plugin);
    return plugin;
  }
  return fail("dbopen", "The store %s needs its plug-in %s, which is not in %s",
              store.c_str(), file.c_str(), places.c_str());
}

std::unique_ptr<DatabaseStore> open_with_plugin(const StoreDescriptor &descriptor,
                                                bool writable,
                                                std::size_t block_budget) {
  const StorePlugin *const plugin = find_plugin(descriptor.store);
  if (plugin == nullptr) {
    return fail("dbopen", "Cannot open %s", descriptor.name.c_str());
  }
  return plugin->open(descriptor, writable, block_budget);
}

bool create_database(const StoreDescriptor &descriptor) {
  if (Schema::load(descriptor.schema) == nullptr) return false;
  if (descriptor.store.empty() || descriptor.store == kFlatFilesStore) {
    return create_flat_files(descriptor.name, descriptor.schema);
  }
  if (descriptor.name.empty() || descriptor.name.back() == '/' ||
      is_file(descriptor.name)) {
    return fail("dbcreate", "Cannot make %s: %s", descriptor.name.c_str(),
                is_file(descriptor.name) ? "it is there already" : "it is not a name");
  }
  const StorePlugin *const plugin = find_plugin(descriptor.store);
  return plugin != nullptr && plugin->create(descriptor) &&
         write_descriptor(descriptor);
}

void register_store(const char *name, const StorePlugin *plugin) {
  Plugins &all = plugins();
  const std::lock_guard lock(all.mutex);
  all.known[name] = plugin;
}

}  // namespace ksutil::db
