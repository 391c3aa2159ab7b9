#pragma once
// The solver link: what the solver knows of the model beyond the mesh (slabs and load cases),
// read from the project's P.toml.
#include <cstddef>
#include <map>
#include <unordered_map>
#include <vector>

// An ordered multimap of ids. For the slabs: key = slab id (1..S), value = the slab's
// physical surface tag in P.msh. Iterated from first to last in ascending key.
class CKQ_IDsMultiMap {
public:
    using Map = std::multimap<long, long>;
    using iterator = Map::iterator;
    using const_iterator = Map::const_iterator;
    using value_type = Map::value_type;

    iterator begin() { return m_map.begin(); }
    iterator end() { return m_map.end(); }
    const_iterator begin() const { return m_map.begin(); }
    const_iterator end() const { return m_map.end(); }
    std::size_t size() const { return m_map.size(); }
    bool empty() const { return m_map.empty(); }
    void clear() { m_map.clear(); }
    iterator insert(long id, long value) { return m_map.emplace(id, value); }
    std::size_t count(long id) const { return m_map.count(id); }
    const_iterator find(long id) const { return m_map.find(id); }

    // Host-style names of the same operations.
    std::size_t GetCount() const { return size(); }
    void Add(long id, long value) { insert(id, value); }

    friend bool operator==(const CKQ_IDsMultiMap& a, const CKQ_IDsMultiMap& b) {
        return a.m_map == b.m_map;
    }

private:
    Map m_map;
};

class CKQ_SolverLinkMock {
public:
    // The highest slab id, S (slabs are 1..S).
    long GetMaxSlabMacroID() const { return m_maxSlabId; }
    // The slabs: slab id -> physical surface tag.
    CKQ_IDsMultiMap& GetSlabsIDs() { return m_slabs; }
    const CKQ_IDsMultiMap& GetSlabsIDs() const { return m_slabs; }

    unsigned long GetCountOfLoadCases() const {
        return static_cast<unsigned long>(m_loadCases.size());
    }
    // Load case id -> one-based load case index (the STRINTG file number).
    const std::unordered_map<long, long>& GetLoadCasesIDs() const { return m_loadCases; }
    // Whether the load case of that one-based index has valid results; false for an index no
    // load case has.
    bool IsLoadCaseValid(unsigned long index) const;

    // Building the link (the store does it from P.toml; tests may do it by hand).
    void SetMaxSlabMacroID(long id) { m_maxSlabId = id; }
    void AddSlab(long slabId, long physicalTag);
    void AddLoadCase(long id, long index, bool valid);
    void Clear();

    friend bool operator==(const CKQ_SolverLinkMock&, const CKQ_SolverLinkMock&) = default;

private:
    long m_maxSlabId = 0;
    CKQ_IDsMultiMap m_slabs;
    std::unordered_map<long, long> m_loadCases;
    std::map<long, bool> m_validity; // index -> valid
};
