#pragma once

#include "Data/Repository/EntityTable.h"

#include <QHash>

#include <memory>
#include <unordered_map>
#include <vector>

namespace quillo {

/// The live objects of one class, each with its stored values. An object is kept as long as it is held elsewhere or has
/// unsaved changes.
template <typename Object, typename Fields, typename Key>
class ObjectMap {
public:
    using Pointer = std::shared_ptr<Object>;
    struct Entry {
        Pointer object;
        Fields stored;
        bool isNew = false;
        bool isRemoved = false;

        [[nodiscard]] const Fields& current() const { return *object; }
        [[nodiscard]] bool isChanged() const { return isNew || isRemoved || !(current() == stored); }
    };

    ObjectMap(const EntityTable<Fields>& table, Key Fields::*key) : m_table(table), m_key(key) {}

    Entry* find(const Key& key) {
        const auto found = m_entries.find(key);
        return found == m_entries.end() ? nullptr : &found->second;
    }

    /// The object of a stored row; nothing when it is removed.
    Pointer adopt(const Fields& row) {
        if (auto* entry = find(row.*m_key))
            return entry->isRemoved ? nullptr : entry->object;
        sweepWhenGrown();
        auto object = std::make_shared<Object>(row);
        m_entries.emplace(row.*m_key, Entry{object, row});
        return object;
    }

    void addNew(const Pointer& object) {
        sweepWhenGrown();
        m_entries.emplace((*object).*m_key, Entry{object, *object, true});
    }

    void remove(const Pointer& object) {
        auto* entry = find((*object).*m_key);
        if (!entry || entry->object != object)
            return;
        if (entry->isNew)
            m_entries.erase((*object).*m_key);
        else
            entry->isRemoved = true;
    }

    [[nodiscard]] bool hasChanges() const {
        return std::any_of(m_entries.begin(), m_entries.end(),
                           [](const auto& item) { return item.second.isChanged(); });
    }

    /// Calls `visit` with the entry of each object that has unsaved changes.
    template <typename Visit>
    void forEachChanged(Visit visit) {
        for (auto& item : m_entries)
            if (item.second.isChanged())
                visit(item.second);
    }

    /// Writes everything unsaved, removals first.
    void write(Database& database, const std::function<int64_t()>& takeKey, int64_t entityNumber) const {
        for (const auto& [key, entry] : m_entries)
            if (entry.isRemoved)
                m_table.remove(database, entry.stored);
        for (const auto& [key, entry] : m_entries) {
            if (entry.isNew)
                m_table.insert(database, takeKey(), entityNumber, entry.current());
            else if (!entry.isRemoved)
                m_table.update(database, entry.stored, entry.current());
        }
    }

    struct Changes {
        QList<Key> inserted, updated, removed;
        [[nodiscard]] bool isEmpty() const { return inserted.isEmpty() && updated.isEmpty() && removed.isEmpty(); }
    };

    /// The values written by `write` are now the stored ones.
    Changes settle() {
        Changes changes;
        for (auto item = m_entries.begin(); item != m_entries.end();) {
            auto& [key, entry] = *item;
            if (entry.isRemoved) {
                changes.removed.append(key);
                item = m_entries.erase(item);
                continue;
            }
            if (entry.isChanged()) {
                (entry.isNew ? changes.inserted : changes.updated).append(key);
                entry.isNew = false;
                entry.stored = entry.current();
            }
            ++item;
        }
        sweep();
        return changes;
    }

    void rollback() {
        std::erase_if(m_entries, [](const auto& item) { return item.second.isNew; });
        for (auto& [key, entry] : m_entries) {
            entry.isRemoved = false;
            static_cast<Fields&>(*entry.object) = entry.stored;
        }
        sweep();
    }

private:
    struct Hash {
        size_t operator()(const Key& key) const { return qHash(key); }
    };

    void sweep() {
        std::erase_if(m_entries,
                      [](const auto& item) { return item.second.object.use_count() == 1 && !item.second.isChanged(); });
        m_sweepAt = std::max<size_t>(smallestSweep, 2 * m_entries.size());
    }
    void sweepWhenGrown() {
        if (m_entries.size() >= m_sweepAt)
            sweep();
    }

    static constexpr size_t smallestSweep = 256;

    const EntityTable<Fields>& m_table;
    Key Fields::*m_key;
    std::unordered_map<Key, Entry, Hash> m_entries;
    size_t m_sweepAt = smallestSweep;
};

} // namespace quillo
