#pragma once
// P.GAR, the result store: an SQLite database.
//
// Schema (format 1):
//   gar_info(key TEXT PRIMARY KEY, value TEXT)     -- "format" = "1"
//   gar_results(                                    -- one row per stored result
//       table_name TEXT PRIMARY KEY,                -- the result's own table, see below
//       result_type TEXT, ds_type INTEGER, ds_id INTEGER,
//       case_type INTEGER, case_number INTEGER, case_subcase INTEGER, case_flag INTEGER,
//       flags INTEGER, coord_system INTEGER, location INTEGER, envelope INTEGER,
//       row_count INTEGER, column_count INTEGER, column_names TEXT,   -- names joined by ","
//       UNIQUE (result_type, ds_type, ds_id, case_type, case_number, case_subcase, case_flag,
//               flags, coord_system, location, envelope))
//   one table per result, named from its key, e.g.
//   "r_AC98000CE79E4365877E0A3F95AA42F4_ds2_1_case3_1_0_0_f0_cs1_loc0_env0":
//       (row INTEGER PRIMARY KEY, element_id INTEGER, v0 REAL, v1 REAL, ...)
//   where row is the zero-based row, element_id the project's element id (0: none) and v<i>
//   the value column i (NULL for a cell never set).
//
// Saving replaces a result in one transaction: a failure or crash part way leaves the result
// stored before. The database keeps SQLite's rollback journal (no WAL), so P.GAR is one file
// that can be copied and deleted as a whole.
#include "host/outcome/result.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

struct sqlite3;

namespace host::outcome {

// An SQLite failure; what() names the file and SQLite's message.
class GarError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct StoredResultInfo {
    CKQ_ResultKey key;
    std::string tableName;
    unsigned long rows = 0;
    unsigned long columns = 0;
};

class GarStore {
public:
    // Opens the database, creating it (and its schema) when createIfMissing; otherwise a missing
    // file throws GarError, and opening writes nothing, so that reading works beside a running
    // save and on a write-protected file (an empty database is an empty store then, its schema
    // made by the first Save). A file that is not a result store throws GarError.
    explicit GarStore(const std::filesystem::path& garFile, bool createIfMissing = true);
    ~GarStore();
    GarStore(const GarStore&) = delete;
    GarStore& operator=(const GarStore&) = delete;

    // Stores the table under its key. An existing result of the key is replaced when replace
    // is true; otherwise it stays and Save returns false. Throws GarError on failure, after
    // rolling back.
    bool Save(const CKQ_Result& result, bool replace = true);

    // Every stored result, ordered by key.
    std::vector<StoredResultInfo> List() const;
    // The stored result of a key, or nothing.
    std::optional<CKQ_Result> Load(const CKQ_ResultKey& key) const;
    // Removes a stored result; false when there was none.
    bool Remove(const CKQ_ResultKey& key);

    // A value of gar_info beside "format" (which cannot be set): what readers need to know
    // about the results as a whole, e.g. the load cases of an envelope's passes. Throws GarError.
    void SetInfo(const std::string& key, const std::string& value);
    std::optional<std::string> GetInfo(const std::string& key) const;

    const std::filesystem::path& path() const { return m_path; }

    // The table name of a key in this schema.
    static std::string TableName(const CKQ_ResultKey& key);

private:
    friend class GarSaveBatch;
    struct InOneTransaction {};
    // Opens (creating) the store and begins a transaction that holds its schema too.
    GarStore(const std::filesystem::path& garFile, InOneTransaction);
    void createSchema();
    std::optional<std::string> storedTable(const CKQ_ResultKey& key) const;
    void dropResult(const CKQ_ResultKey& key, const std::string& table);

    std::filesystem::path m_path;
    sqlite3* m_db = nullptr;
    bool m_hasSchema = true;
};

// The saves of one pass in one transaction. While a batch for a file lives, the results API's
// saves to that file (CKQ_FemResultsAPI::SaveResult) go through one connection in one
// transaction, which Commit ends; a batch that ends without Commit (an exception) rolls back,
// and one whose process is killed leaves SQLite's journal, which the next opener rolls back. So
// a pass's slabs are stored all together or not at all, and a reader never sees a part of them.
// The file is opened on the first save (after the pass has deleted the old one). One batch per
// process at a time.
class GarSaveBatch {
public:
    explicit GarSaveBatch(std::filesystem::path garFile);
    ~GarSaveBatch();
    GarSaveBatch(const GarSaveBatch&) = delete;
    GarSaveBatch& operator=(const GarSaveBatch&) = delete;

    // Commits what the batch saved (nothing to do when nothing was saved). Throws GarError.
    void Commit();

    // The batch's store when a batch for garFile is open, else null.
    static GarStore* StoreFor(const std::filesystem::path& garFile);

private:
    std::filesystem::path m_path;
    std::unique_ptr<GarStore> m_store;
};

// A test seam: called by Save after each row it has written, inside the transaction. A hook
// that throws makes the save fail there (and roll back); one that ends the process simulates
// a crash. An empty hook removes it. Returns the previous hook.
using SaveRowHook = std::function<void(const CKQ_ResultKey& key, unsigned long row)>;
SaveRowHook SetSaveRowHook(SaveRowHook hook);

} // namespace host::outcome
