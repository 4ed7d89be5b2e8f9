#include "docksim/registry.h"

namespace docksim {

static const std::string kPlanePrefix = "IOService:";

Registry::Registry() { add(0, "Root", "Root", ""); }

int Registry::add(int parent, const std::string& name, const std::string& className, const std::string& location,
                  Json properties, int dock)
{
    RegistryEntry e;
    e.id = next_++;
    e.parent = parent;
    e.name = name;
    e.className = className;
    e.location = location;
    e.properties = std::move(properties);
    e.dock = dock;
    if (RegistryEntry* p = find(parent))
        p->children.push_back(e.id);
    entries_.emplace(e.id, std::move(e));
    return next_ - 1;
}

void Registry::remove(int id)
{
    RegistryEntry* e = find(id);
    if (!e || id == root())
        return;
    const std::vector<int> children = e->children;
    for (int child : children)
        remove(child);
    if (RegistryEntry* p = find(e->parent)) {
        auto& siblings = p->children;
        for (auto it = siblings.begin(); it != siblings.end(); ++it)
            if (*it == id) {
                siblings.erase(it);
                break;
            }
    }
    entries_.erase(id);
}

const RegistryEntry* Registry::find(int id) const
{
    const auto it = entries_.find(id);
    return it == entries_.end() ? nullptr : &it->second;
}

RegistryEntry* Registry::find(int id)
{
    const auto it = entries_.find(id);
    return it == entries_.end() ? nullptr : &it->second;
}

std::string Registry::path(int id) const
{
    const RegistryEntry* e = find(id);
    if (!e)
        return {};
    if (id == root())
        return kPlanePrefix + "/";
    const std::string component = e->location.empty() ? e->name : e->name + "@" + e->location;
    const std::string above = path(e->parent);
    return above + (above.back() == '/' ? "" : "/") + component;
}

int Registry::lookup(const std::string& path) const
{
    for (const auto& [id, e] : entries_)
        if (this->path(id) == path)
            return id;
    return 0;
}

std::vector<int> Registry::matchName(const std::string& name) const
{
    std::vector<int> out;
    for (const auto& [id, e] : entries_)
        if (e.name == name)
            out.push_back(id);
    return out;
}

std::vector<int> Registry::matchClass(const std::string& className) const
{
    std::vector<int> out;
    for (const auto& [id, e] : entries_)
        if (e.className == className)
            out.push_back(id);
    return out;
}

const Json* Registry::search(int id, const std::string& key) const
{
    for (const RegistryEntry* e = find(id); e; e = find(e->parent))
        if (const Json* v = e->properties.find(key))
            return v;
    return nullptr;
}

} // namespace docksim
