// The device registry the docks publish: a tree of numbered entries in the
// service plane, each with a name, a class and a dictionary of properties.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "docksim/json.h"

namespace docksim {

struct RegistryEntry {
    int id = 0;
    int parent = 0;
    std::string name;      // what name matching compares
    std::string className; // what class matching compares
    std::string location;  // "@location" in the path, so siblings differ
    Json properties = Json::object();
    std::vector<int> children;
    int dock = -1;         // the dock whose driver this entry is, or -1
};

class Registry {
public:
    Registry();

    int root() const { return 1; }
    // Adds a child of `parent` (last in its children) and returns its number.
    // Numbers are never reused, so a stale one cannot find a newcomer.
    int add(int parent, const std::string& name, const std::string& className, const std::string& location,
            Json properties = Json::object(), int dock = -1);
    // Removes the entry and everything below it.
    void remove(int id);

    const RegistryEntry* find(int id) const;
    RegistryEntry* find(int id);
    // True for a number that once named an entry that is gone now.
    bool removed(int id) const { return id > 0 && id < next_ && !find(id); }

    std::string path(int id) const;
    int lookup(const std::string& path) const; // 0 when nothing is there
    // Entries in the order they were published.
    std::vector<int> matchName(const std::string& name) const;
    std::vector<int> matchClass(const std::string& className) const;
    // The property of the entry or of its nearest ancestor, or null.
    const Json* search(int id, const std::string& key) const;

private:
    std::map<int, RegistryEntry> entries_;
    int next_ = 1;
};

} // namespace docksim
