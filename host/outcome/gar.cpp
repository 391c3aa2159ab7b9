#include "host/outcome/gar.h"

#include "host/framework/stage_clock.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <mutex>
#include <optional>
#include <sqlite3.h>

namespace host::outcome {

namespace {

std::mutex g_hookMutex;
SaveRowHook g_saveRowHook;

SaveRowHook currentHook() {
    std::lock_guard lock(g_hookMutex);
    return g_saveRowHook;
}

// A prepared statement that finalises itself.
class Statement {
public:
    Statement(sqlite3* db, const std::filesystem::path& file, const std::string& sql)
        : m_db(db), m_file(file) {
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &m_stmt, nullptr) != SQLITE_OK)
            fail("cannot prepare \"" + sql + "\"");
    }
    ~Statement() { sqlite3_finalize(m_stmt); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int i, std::int64_t v) { return check(sqlite3_bind_int64(m_stmt, i, v)); }
    Statement& bind(int i, double v) {
        // SQLite keeps NaN as NULL anyway; say so explicitly.
        return check(std::isnan(v) ? sqlite3_bind_null(m_stmt, i)
                                   : sqlite3_bind_double(m_stmt, i, v));
    }
    Statement& bind(int i, const std::string& v) {
        return check(
            sqlite3_bind_text(m_stmt, i, v.c_str(), static_cast<int>(v.size()), SQLITE_TRANSIENT));
    }

    // True while there is a row.
    bool step() {
        int rc = sqlite3_step(m_stmt);
        if (rc == SQLITE_ROW)
            return true;
        if (rc != SQLITE_DONE)
            fail("statement failed");
        return false;
    }
    void reset() {
        sqlite3_reset(m_stmt);
        sqlite3_clear_bindings(m_stmt);
    }
    // Ready for the next row, whose every parameter is bound again.
    void next() { sqlite3_reset(m_stmt); }

    std::int64_t integer(int col) const { return sqlite3_column_int64(m_stmt, col); }
    double real(int col) const {
        return sqlite3_column_type(m_stmt, col) == SQLITE_NULL
                   ? std::numeric_limits<double>::quiet_NaN()
                   : sqlite3_column_double(m_stmt, col);
    }
    std::string text(int col) const {
        const auto* p = sqlite3_column_text(m_stmt, col);
        return p == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(p));
    }

private:
    Statement& check(int rc) {
        if (rc != SQLITE_OK)
            fail("cannot bind a value");
        return *this;
    }
    [[noreturn]] void fail(const std::string& what) const {
        throw GarError(m_file.string() + ": " + what + ": " + sqlite3_errmsg(m_db));
    }

    sqlite3* m_db;
    std::filesystem::path m_file;
    sqlite3_stmt* m_stmt = nullptr;
};

void exec(sqlite3* db, const std::filesystem::path& file, const std::string& sql) {
    char* error = nullptr;
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
        std::string message = error != nullptr ? error : sqlite3_errmsg(db);
        sqlite3_free(error);
        throw GarError(file.string() + ": " + message);
    }
}

// An SQL identifier, its quotes doubled, so that no name can end the quoting.
std::string sqlName(const std::string& identifier) {
    std::string quoted = "\"";
    for (const char c : identifier) {
        if (c == '"')
            quoted += '"';
        quoted += c;
    }
    return quoted + '"';
}

const char* kCatalogColumns = "result_type, ds_type, ds_id, case_type, case_number, case_subcase, "
                              "case_flag, flags, coord_system, "
                              "location, envelope";

const char* kKeyMatch =
    "result_type = ?1 AND ds_type = ?2 AND ds_id = ?3 AND case_type = ?4 AND case_number = ?5 AND "
    "case_subcase = ?6 AND case_flag = ?7 AND flags = ?8 AND coord_system = ?9 AND location = ?10 "
    "AND "
    "envelope = ?11";

void bindKey(Statement& s, const CKQ_ResultKey& key) {
    s.bind(1, host::com::ToString(key.GetResultType()))
        .bind(2, std::int64_t{key.GetDsObject().GetType()})
        .bind(3, std::int64_t{key.GetDsObject().GetID()})
        .bind(4, std::int64_t{key.GetResultCase().GetType()})
        .bind(5, std::int64_t{key.GetResultCase().GetNumber()})
        .bind(6, std::int64_t{key.GetResultCase().GetSubCase()})
        .bind(7, std::int64_t{key.GetResultCase().GetFlag() ? 1 : 0})
        .bind(8, std::int64_t{key.GetFlags()})
        .bind(9, std::int64_t{key.GetCoordSystem()})
        .bind(10, std::int64_t{key.GetResLocation()})
        .bind(11, std::int64_t{key.GetEnvelopeExtreme()});
}

std::string joinNames(const std::vector<std::string>& names) {
    std::string out;
    for (std::size_t i = 0; i < names.size(); ++i)
        out += (i > 0 ? "," : "") + names[i];
    return out;
}

std::vector<std::string> splitNames(const std::string& text, unsigned long columns) {
    std::vector<std::string> names;
    if (text.empty())
        return names;
    std::size_t start = 0;
    for (;;) {
        std::size_t comma = text.find(',', start);
        names.push_back(
            text.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    if (names.size() > columns)
        names.resize(columns);
    return names;
}

// A transaction that rolls back unless committed; inside a batch's transaction it is a part of
// it (a savepoint) that rolls back alone.
class Transaction {
public:
    Transaction(sqlite3* db, const std::filesystem::path& file) : m_db(db), m_file(file) {
        m_nested = sqlite3_get_autocommit(db) == 0;
        exec(db, file, m_nested ? "SAVEPOINT gar_save" : "BEGIN IMMEDIATE");
    }
    ~Transaction() {
        if (m_done)
            return;
        if (m_nested)
            sqlite3_exec(m_db, "ROLLBACK TO gar_save; RELEASE gar_save", nullptr, nullptr, nullptr);
        else
            sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    void commit() {
        exec(m_db, m_file, m_nested ? "RELEASE gar_save" : "COMMIT");
        m_done = true;
    }

private:
    sqlite3* m_db;
    std::filesystem::path m_file;
    bool m_nested = false;
    bool m_done = false;
};

std::mutex g_batchMutex;
GarSaveBatch* g_batch = nullptr;
std::filesystem::path g_batchPath;

} // namespace

SaveRowHook SetSaveRowHook(SaveRowHook hook) {
    std::lock_guard lock(g_hookMutex);
    std::swap(g_saveRowHook, hook);
    return hook;
}

std::string GarStore::TableName(const CKQ_ResultKey& key) {
    std::string guid = host::com::ToString(key.GetResultType());
    std::string hex;
    for (char c : guid)
        if (c != '{' && c != '}' && c != '-')
            hex += c;
    auto num = [](long long v) { return v < 0 ? "m" + std::to_string(-v) : std::to_string(v); };
    return "r_" + hex + "_ds" + num(key.GetDsObject().GetType()) + "_" +
           num(key.GetDsObject().GetID()) + "_case" + num(key.GetResultCase().GetType()) + "_" +
           num(key.GetResultCase().GetNumber()) + "_" + num(key.GetResultCase().GetSubCase()) +
           "_" + num(key.GetResultCase().GetFlag() ? 1 : 0) + "_f" + num(key.GetFlags()) + "_cs" +
           num(key.GetCoordSystem()) + "_loc" + num(key.GetResLocation()) + "_env" +
           num(key.GetEnvelopeExtreme());
}

namespace {

// The database of a store, opened with a busy timeout; GarError when it cannot be.
sqlite3* OpenDatabase(const std::filesystem::path& garFile, bool create) {
    sqlite3* db = nullptr;
    const int flags =
        SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (create ? SQLITE_OPEN_CREATE : 0);
    if (sqlite3_open_v2(garFile.c_str(), &db, flags, nullptr) != SQLITE_OK) {
        std::string message = db != nullptr ? sqlite3_errmsg(db) : "out of memory";
        sqlite3_close(db);
        throw GarError(garFile.string() + ": cannot open the result store: " + message);
    }
    sqlite3_busy_timeout(db, 5000);
    return db;
}

} // namespace

GarStore::GarStore(const std::filesystem::path& garFile, bool createIfMissing)
    : m_path(garFile), m_db(OpenDatabase(garFile, createIfMissing)) {
    try {
        if (createIfMissing) {
            createSchema();
        } else {
            // Opening to read writes nothing: a reader neither waits for a save that is
            // running nor needs write access, and a database of some other kind stays as it is.
            Statement tables(
                m_db, m_path,
                "SELECT count(*), sum(name = 'gar_info') FROM sqlite_master WHERE type = 'table'");
            tables.step();
            if (tables.integer(1) == 0) {
                // An empty database (a 0-byte file, say) is an empty store; the first Save
                // makes its schema. Tables of something else mean it is no result store.
                if (tables.integer(0) != 0)
                    throw GarError(m_path.string() +
                                   ": not a result store (it has no gar_info table)");
                m_hasSchema = false;
            }
        }
        if (m_hasSchema) {
            Statement format(m_db, m_path, "SELECT value FROM gar_info WHERE key = 'format'");
            if (!format.step() || format.text(0) != "1")
                throw GarError(m_path.string() + ": not a result store of format 1");
        }
    } catch (...) {
        sqlite3_close(m_db);
        m_db = nullptr;
        throw;
    }
}

GarStore::GarStore(const std::filesystem::path& garFile, InOneTransaction)
    : m_path(garFile), m_db(OpenDatabase(garFile, true)) {
    try {
        exec(m_db, m_path, "PRAGMA journal_mode = DELETE");
        exec(m_db, m_path, "BEGIN IMMEDIATE");
        createSchema();
    } catch (...) {
        sqlite3_close(m_db); // rolls the transaction back
        m_db = nullptr;
        throw;
    }
}

GarSaveBatch::GarSaveBatch(std::filesystem::path garFile) : m_path(std::move(garFile)) {
    std::lock_guard lock(g_batchMutex);
    if (g_batch != nullptr)
        throw std::logic_error("a second result-store batch while " + g_batchPath.string() +
                               " has one");
    g_batch = this;
    g_batchPath = m_path;
}

GarSaveBatch::~GarSaveBatch() {
    m_store.reset(); // closing without COMMIT rolls back
    std::lock_guard lock(g_batchMutex);
    g_batch = nullptr;
    g_batchPath.clear();
}

void GarSaveBatch::Commit() {
    if (!m_store)
        return;
    exec(m_store->m_db, m_path, "COMMIT");
    m_store.reset();
    host::framework::MarkStage("committed");
}

GarStore* GarSaveBatch::StoreFor(const std::filesystem::path& garFile) {
    std::lock_guard lock(g_batchMutex);
    if (g_batch == nullptr || g_batchPath != garFile)
        return nullptr;
    if (!g_batch->m_store)
        g_batch->m_store.reset(new GarStore(garFile, GarStore::InOneTransaction{}));
    return g_batch->m_store.get();
}

void GarStore::createSchema() {
    // One file only: the rollback journal lives beside P.GAR during a save and goes with it.
    exec(m_db, m_path, "PRAGMA journal_mode = DELETE");
    exec(m_db, m_path,
         "CREATE TABLE IF NOT EXISTS gar_info(key TEXT PRIMARY KEY, value TEXT);"
         "INSERT OR IGNORE INTO gar_info(key, value) VALUES ('format', '1');"
         "CREATE TABLE IF NOT EXISTS gar_results("
         " table_name TEXT PRIMARY KEY, result_type TEXT NOT NULL, ds_type INTEGER NOT NULL,"
         " ds_id INTEGER NOT NULL, case_type INTEGER NOT NULL, case_number INTEGER NOT NULL,"
         " case_subcase INTEGER NOT NULL, case_flag INTEGER NOT NULL, flags INTEGER NOT NULL,"
         " coord_system INTEGER NOT NULL, location INTEGER NOT NULL, envelope INTEGER NOT NULL,"
         " row_count INTEGER NOT NULL, column_count INTEGER NOT NULL, column_names TEXT NOT NULL,"
         " UNIQUE (result_type, ds_type, ds_id, case_type, case_number, case_subcase, case_flag,"
         "         flags, coord_system, location, envelope));");
    m_hasSchema = true;
}

GarStore::~GarStore() {
    sqlite3_close(m_db);
}

void GarStore::SetInfo(const std::string& key, const std::string& value) {
    if (key == "format")
        throw GarError(m_path.string() + ": the store's format cannot be set");
    if (!m_hasSchema)
        createSchema();
    Statement set(m_db, m_path, "INSERT OR REPLACE INTO gar_info(key, value) VALUES (?1, ?2)");
    set.bind(1, key).bind(2, value);
    set.step();
}

std::optional<std::string> GarStore::GetInfo(const std::string& key) const {
    if (!m_hasSchema)
        return std::nullopt;
    Statement get(m_db, m_path, "SELECT value FROM gar_info WHERE key = ?1");
    get.bind(1, key);
    if (!get.step())
        return std::nullopt;
    return get.text(0);
}

bool GarStore::Save(const CKQ_Result& result, bool replace) {
    const CKQ_ResultKey& key = result.GetKey();
    const std::string table = TableName(key);
    SaveRowHook hook = currentHook();
    if (!m_hasSchema)
        createSchema();
    Transaction transaction(m_db, m_path);
    std::optional<std::string> old = storedTable(key);
    if (old) {
        if (!replace)
            return false; // rolled back: nothing changed
        dropResult(key, *old);
    }
    const unsigned long columns = result.GetCountOfColumns();
    std::string create =
        "CREATE TABLE " + sqlName(table) + "(row INTEGER PRIMARY KEY, element_id INTEGER NOT NULL";
    for (unsigned long c = 0; c < columns; ++c)
        create += ", v" + std::to_string(c) + " REAL";
    exec(m_db, m_path, "DROP TABLE IF EXISTS " + sqlName(table));
    exec(m_db, m_path, create + ")");
    // Rows go in by the block, one statement of many rows (SQLite's work per statement is
    // spread over them), the rest one by one. Parameters of a row: its number, its element,
    // its values.
    const int perRow = static_cast<int>(columns) + 2;
    const unsigned long block = std::max(1, 900 / perRow); // within SQLite's 999 parameters
    auto insertOf = [&](unsigned long rows) {
        std::string insert = "INSERT INTO " + sqlName(table) + " VALUES ";
        for (unsigned long k = 0; k < rows; ++k) {
            insert += k == 0 ? "(" : ", (";
            for (int j = 0; j < perRow; ++j)
                insert +=
                    (j == 0 ? "?" : ", ?") + std::to_string(static_cast<int>(k) * perRow + j + 1);
            insert += ")";
        }
        return insert;
    };
    auto bindRow = [&](Statement& statement, unsigned long k, unsigned long r) {
        const int first = static_cast<int>(k) * perRow;
        statement.bind(first + 1, static_cast<std::int64_t>(r))
            .bind(first + 2, static_cast<std::int64_t>(result.GetElementId(r)));
        for (unsigned long c = 0; c < columns; ++c)
            statement.bind(first + 3 + static_cast<int>(c), result.GetValue(c, r));
    };
    const unsigned long rows = result.GetCountOfRows();
    std::optional<Statement> many; // of a block of rows
    std::optional<Statement> one;  // of the last rows, one by one
    for (unsigned long r = 0; r < rows;) {
        const bool full = rows - r >= block;
        const unsigned long count = full ? block : 1;
        std::optional<Statement>& insert = full ? many : one;
        if (!insert)
            insert.emplace(m_db, m_path, insertOf(count));
        for (unsigned long k = 0; k < count; ++k)
            bindRow(*insert, k, r + k);
        insert->step();
        insert->next();
        if (full)
            host::framework::MarkProgress(r + block, rows);
        if (hook)
            for (unsigned long k = 0; k < count; ++k)
                hook(key, r + k);
        r += count;
    }
    Statement catalog(m_db, m_path,
                      std::string("INSERT INTO gar_results(") + kCatalogColumns +
                          ", table_name, row_count, column_count, column_names) VALUES "
                          "(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15)");
    bindKey(catalog, key);
    catalog.bind(12, table)
        .bind(13, static_cast<std::int64_t>(result.GetCountOfRows()))
        .bind(14, static_cast<std::int64_t>(columns))
        .bind(15, joinNames(result.GetColumnNames()));
    catalog.step();
    transaction.commit();
    return true;
}

std::vector<StoredResultInfo> GarStore::List() const {
    std::vector<StoredResultInfo> out;
    if (!m_hasSchema)
        return out;
    Statement s(m_db, m_path,
                std::string("SELECT ") + kCatalogColumns +
                    ", table_name, row_count, column_count FROM gar_results ORDER BY " +
                    kCatalogColumns);
    while (s.step()) {
        auto guid = host::com::ParseGuid(s.text(0));
        if (!guid)
            throw GarError(m_path.string() + ": result table " + s.text(11) +
                           " has the invalid result type " + s.text(0));
        using namespace Outcome64Enums;
        CKQ_DsObject object(static_cast<eDsElementType>(s.integer(1)),
                            static_cast<int>(s.integer(2)));
        CResultCase rc(static_cast<eDsElementType>(s.integer(3)), static_cast<int>(s.integer(4)),
                       static_cast<short>(s.integer(5)), s.integer(6) != 0);
        StoredResultInfo info;
        info.key = CKQ_ResultKey(*guid, object, rc, static_cast<unsigned char>(s.integer(7)),
                                 static_cast<eCoordSystem>(s.integer(8)),
                                 static_cast<eResLocation>(s.integer(9)),
                                 static_cast<eEnvelopeExtreme>(s.integer(10)));
        info.tableName = s.text(11);
        info.rows = static_cast<unsigned long>(s.integer(12));
        info.columns = static_cast<unsigned long>(s.integer(13));
        out.push_back(std::move(info));
    }
    std::sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
    return out;
}

std::optional<CKQ_Result> GarStore::Load(const CKQ_ResultKey& key) const {
    std::string table;
    unsigned long rows = 0;
    unsigned long columns = 0;
    std::string names;
    if (!m_hasSchema)
        return std::nullopt;
    {
        Statement s(m_db, m_path,
                    std::string("SELECT table_name, row_count, column_count, column_names FROM "
                                "gar_results WHERE ") +
                        kKeyMatch);
        bindKey(s, key);
        if (!s.step())
            return std::nullopt;
        table = s.text(0);
        const std::int64_t rowCount = s.integer(1);
        const std::int64_t columnCount = s.integer(2);
        names = s.text(3);
        // The catalog is the file's word: the table must be the one this schema names for the
        // key, and the counts must be ones a store can hold.
        if (table != TableName(key))
            throw GarError(m_path.string() + ": the catalog names the table \"" + table +
                           "\" for " + key.ToString() + ", where \"" + TableName(key) +
                           "\" belongs: not a store this program wrote, or a damaged one");
        if (columnCount < 0 || columnCount > static_cast<std::int64_t>(CKQ_Result::c_nMaxColumns) ||
            rowCount < 0 || rowCount > (std::int64_t{1} << 32))
            throw GarError(m_path.string() + ": table " + table + " claims " +
                           std::to_string(rowCount) + " rows of " + std::to_string(columnCount) +
                           " columns (at most " + std::to_string(CKQ_Result::c_nMaxColumns) +
                           "): a damaged store");
        rows = static_cast<unsigned long>(rowCount);
        columns = static_cast<unsigned long>(columnCount);
    }
    std::string select = "SELECT row, element_id";
    for (unsigned long c = 0; c < columns; ++c)
        select += ", v" + std::to_string(c);
    Statement s(m_db, m_path, select + " FROM " + sqlName(table) + " ORDER BY row");
    std::vector<unsigned long> ids;
    std::vector<double> values; // row by row
    // Room for the rows the catalog names, as far as a table of the file's size can hold them.
    ids.reserve(std::min<std::size_t>(rows, 1u << 20));
    values.reserve(std::min<std::size_t>(std::size_t{rows} * columns, 1u << 22));
    while (s.step()) {
        if (static_cast<unsigned long>(s.integer(0)) != ids.size())
            throw GarError(m_path.string() + ": table " + table + " misses row " +
                           std::to_string(ids.size()));
        ids.push_back(static_cast<unsigned long>(s.integer(1)));
        for (unsigned long c = 0; c < columns; ++c)
            values.push_back(s.real(static_cast<int>(c + 2)));
    }
    if (ids.size() != rows)
        throw GarError(m_path.string() + ": table " + table + " has " + std::to_string(ids.size()) +
                       " rows, its catalog entry says " + std::to_string(rows));
    CKQ_Result result(key, std::move(ids), columns);
    for (unsigned long r = 0; r < rows; ++r)
        for (unsigned long c = 0; c < columns; ++c)
            result.SetValue(c, r, values[std::size_t{r} * columns + c]);
    std::vector<std::string> columnNames = splitNames(names, columns);
    for (unsigned long c = 0; c < columnNames.size(); ++c)
        if (!columnNames[c].empty())
            result.SetColumnName(c, columnNames[c]);
    return result;
}

bool GarStore::Remove(const CKQ_ResultKey& key) {
    if (!m_hasSchema)
        return false;
    Transaction transaction(m_db, m_path);
    std::optional<std::string> table = storedTable(key);
    if (!table)
        return false;
    dropResult(key, *table);
    transaction.commit();
    return true;
}

std::optional<std::string> GarStore::storedTable(const CKQ_ResultKey& key) const {
    if (!m_hasSchema)
        return std::nullopt;
    Statement s(m_db, m_path, std::string("SELECT table_name FROM gar_results WHERE ") + kKeyMatch);
    bindKey(s, key);
    if (!s.step())
        return std::nullopt;
    return s.text(0);
}

void GarStore::dropResult(const CKQ_ResultKey& key, const std::string& table) {
    // No statement may be running while a table is dropped.
    exec(m_db, m_path, "DROP TABLE IF EXISTS " + sqlName(table));
    Statement drop(m_db, m_path, std::string("DELETE FROM gar_results WHERE ") + kKeyMatch);
    bindKey(drop, key);
    drop.step();
}

} // namespace host::outcome
