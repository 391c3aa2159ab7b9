#include "host/outcome/gar.h"
#include "tests/support/host_project_fixture.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <chrono>
#include <cmath>
#include <cstdlib>

namespace {

using host::outcome::GarError;
using host::outcome::GarStore;
using namespace Outcome64Enums;
using ::testing::HasSubstr;

// {AC98000C-E79E-4365-877E-0A3F95AA42F4}
constexpr GUID kType = {
    0xAC98000C, 0xE79E, 0x4365, {0x87, 0x7E, 0x0A, 0x3F, 0x95, 0xAA, 0x42, 0xF4}};

CKQ_ResultKey SlabKey(int slab, int loadCase = 1) {
    return CKQ_ResultKey(kType, CKQ_DsObject(eDs_Slab, slab),
                         CResultCase(eDs_LoadCase, loadCase, 0, false), 0, eCS_Local, eRL_Element,
                         eEE_None);
}

CKQ_Result Table(const CKQ_ResultKey& key, unsigned long firstElement, unsigned long rows,
                 double base) {
    std::vector<unsigned long> ids(rows);
    for (unsigned long r = 0; r < rows; ++r)
        ids[r] = firstElement + r;
    CKQ_Result result(key, ids);
    for (unsigned long r = 0; r < rows; ++r)
        for (unsigned long c = 0; c < 4; ++c)
            result.SetValue(c, r, base + 10.0 * r + c);
    return result;
}

class GarTest : public hosttest::ProjectFixture {
protected:
    void TearDown() override {
        host::outcome::SetSaveRowHook({});
        ProjectFixture::TearDown();
    }
    std::filesystem::path Gar() const { return Project().string() + ".GAR"; }

    // One value of a plain SQL query through SQLite itself.
    std::string Query(const std::string& sql) const {
        sqlite3* db = nullptr;
        EXPECT_EQ(sqlite3_open_v2(Gar().c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
        std::string out;
        auto collect = [](void* target, int n, char** values, char**) {
            auto* s = static_cast<std::string*>(target);
            for (int i = 0; i < n; ++i)
                *s += (s->empty() ? "" : "|") +
                      std::string(values[i] != nullptr ? values[i] : "NULL");
            return 0;
        };
        char* error = nullptr;
        EXPECT_EQ(sqlite3_exec(db, sql.c_str(), collect, &out, &error), SQLITE_OK)
            << (error ? error : "");
        sqlite3_free(error);
        sqlite3_close(db);
        return out;
    }
};

TEST_F(GarTest, RoundTripKeepsKeyRowsValuesAndNames) {
    CKQ_Result saved = Table(SlabKey(2), 5, 3, 0.5);
    saved.SetColumnName(0, "global_error");
    saved.SetColumnName(3, "size");
    {
        GarStore store(Gar());
        EXPECT_TRUE(store.Save(saved));
    }
    GarStore store(Gar(), false);
    auto loaded = store.Load(SlabKey(2));
    ASSERT_TRUE(loaded.has_value());
    EXPECT_TRUE(*loaded == saved);
    EXPECT_EQ(loaded->GetElementId(0), 5u);
    EXPECT_EQ(loaded->GetValue(3, 2), 0.5 + 20.0 + 3.0);
    EXPECT_EQ(loaded->GetColumnName(0), "global_error");
    EXPECT_EQ(loaded->GetColumnName(1), "");
    EXPECT_FALSE(store.Load(SlabKey(3)).has_value());
}

// Rows go in by the block; tables of every length around a block's (and of several widths)
// come back row for row, and the row hook sees every row once, in order.
TEST_F(GarTest, TablesOfAnyLengthComeBackRowForRow) {
    GarStore store(Gar());
    std::vector<unsigned long> seen;
    host::outcome::SetSaveRowHook(
        [&seen](const CKQ_ResultKey&, unsigned long row) { seen.push_back(row); });
    int slab = 1;
    for (unsigned long columns : {1ul, 4ul, 5ul, 16ul}) {
        const unsigned long block = 900 / (columns + 2);
        for (unsigned long rows : {0ul, 1ul, block - 1, block, block + 1, 3 * block + 7}) {
            std::vector<unsigned long> ids(rows);
            for (unsigned long r = 0; r < rows; ++r)
                ids[r] = r % 5 == 0 ? 0 : 1000 + 3 * r;
            CKQ_Result result(SlabKey(slab++), ids, columns);
            for (unsigned long r = 0; r < rows; ++r)
                for (unsigned long c = 0; c < columns; ++c)
                    if ((r + c) % 7 != 3) // some cells unset
                        result.SetValue(c, r, 0.5 * static_cast<double>(r) - 1e3 * c + 1.0 / 3.0);
            seen.clear();
            ASSERT_TRUE(store.Save(result));
            ASSERT_EQ(seen.size(), rows) << columns << " columns, " << rows << " rows";
            for (unsigned long r = 0; r < rows; ++r)
                ASSERT_EQ(seen[r], r);
            const auto back = store.Load(result.GetKey());
            ASSERT_TRUE(back.has_value());
            ASSERT_EQ(back->GetCountOfRows(), rows);
            ASSERT_EQ(back->GetCountOfColumns(), columns);
            for (unsigned long r = 0; r < rows; ++r) {
                ASSERT_EQ(back->GetElementId(r), ids[r]);
                for (unsigned long c = 0; c < columns; ++c) {
                    const double want = result.GetValue(c, r);
                    const double got = back->GetValue(c, r);
                    ASSERT_TRUE(std::isnan(want) ? std::isnan(got) : got == want)
                        << "row " << r << ", column " << c;
                }
            }
        }
    }
}

TEST_F(GarTest, UnsetCellsAreNullAndComeBackAsNaN) {
    CKQ_Result saved(SlabKey(1), {1, 0, 3}, 2);
    saved.SetValue(0, 0, 1.25);
    GarStore(Gar()).Save(saved);
    EXPECT_EQ(Query("SELECT row, element_id, v0, v1 FROM \"" + GarStore::TableName(SlabKey(1)) +
                    "\" ORDER BY row"),
              "0|1|1.25|NULL|1|0|NULL|NULL|2|3|NULL|NULL");
    auto loaded = GarStore(Gar(), false).Load(SlabKey(1));
    ASSERT_TRUE(loaded);
    EXPECT_TRUE(std::isnan(loaded->GetValue(1, 0)));
    EXPECT_EQ(loaded->GetElementId(1), 0u);
    EXPECT_TRUE(*loaded == saved);
}

TEST_F(GarTest, PlainQueriesAnswerFromTheCatalogAndTheTables) {
    GarStore store(Gar());
    store.Save(Table(SlabKey(1), 1, 2, 0.0));
    store.Save(Table(SlabKey(2), 3, 4, 100.0));
    EXPECT_EQ(Query("SELECT value FROM gar_info WHERE key = 'format'"), "1");
    EXPECT_EQ(Query("SELECT ds_id, row_count, column_count FROM gar_results ORDER BY ds_id"),
              "1|2|4|2|4|4");
    EXPECT_EQ(Query("SELECT result_type FROM gar_results WHERE ds_id = 2"),
              "{AC98000C-E79E-4365-877E-0A3F95AA42F4}");
    EXPECT_EQ(Query("SELECT table_name FROM gar_results WHERE ds_id = 2"),
              "r_AC98000CE79E4365877E0A3F95AA42F4_ds2_2_case3_1_0_0_f0_cs1_loc0_env0");
    EXPECT_EQ(Query("SELECT element_id, v2 FROM "
                    "r_AC98000CE79E4365877E0A3F95AA42F4_ds2_2_case3_1_0_0_f0_cs1_loc0_env0 "
                    "WHERE row = 3"),
              "6|132.0");
}

TEST_F(GarTest, TheSqliteShellReadsTheStore) {
    GarStore(Gar()).Save(Table(SlabKey(1), 1, 2, 0.0));
    std::string out = (Dir() / "shell.txt").string();
    std::string command = "sqlite3 \"" + Gar().string() +
                          "\" \"SELECT count(*) FROM gar_results;\" > \"" + out + "\"";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(Read(out), "1\n");
}

TEST_F(GarTest, ListGivesEveryStoredResultInKeyOrder) {
    GarStore store(Gar());
    store.Save(Table(SlabKey(2, 1), 3, 4, 0.0));
    store.Save(Table(SlabKey(1, 2), 1, 2, 0.0));
    store.Save(Table(SlabKey(1, 1), 1, 2, 0.0));
    auto list = store.List();
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0].key, SlabKey(1, 1));
    EXPECT_EQ(list[1].key, SlabKey(1, 2));
    EXPECT_EQ(list[2].key, SlabKey(2, 1));
    EXPECT_EQ(list[2].rows, 4u);
    EXPECT_EQ(list[2].columns, 4u);
    for (const auto& info : list)
        EXPECT_TRUE(store.Load(info.key).has_value());
}

TEST_F(GarTest, EveryPartOfTheKeyCounts) {
    GarStore store(Gar());
    CKQ_ResultKey base = SlabKey(1);
    std::vector<CKQ_ResultKey> keys = {
        base,
        CKQ_ResultKey(GUID_NULL, CKQ_DsObject(eDs_Slab, 1), CResultCase(eDs_LoadCase, 1, 0, false),
                      0, eCS_Local, eRL_Element, eEE_None),
        CKQ_ResultKey(kType, CKQ_DsObject(eDs_Slab, 1), CResultCase(eDs_LoadCase, 1, 2, false), 0,
                      eCS_Local, eRL_Element, eEE_None),
        CKQ_ResultKey(kType, CKQ_DsObject(eDs_Slab, 1), CResultCase(eDs_LoadCase, 1, 0, true), 0,
                      eCS_Local, eRL_Element, eEE_None),
        CKQ_ResultKey(kType, CKQ_DsObject(eDs_Slab, 1), CResultCase(eDs_LoadCase, 1, 0, false), 3,
                      eCS_Local, eRL_Element, eEE_None),
        CKQ_ResultKey(kType, CKQ_DsObject(eDs_Slab, 1), CResultCase(eDs_LoadCase, 1, 0, false), 0,
                      eCS_Global, eRL_Element, eEE_None),
        CKQ_ResultKey(kType, CKQ_DsObject(eDs_Slab, 1), CResultCase(eDs_LoadCase, 1, 0, false), 0,
                      eCS_Local, eRL_Node, eEE_None),
        CKQ_ResultKey(kType, CKQ_DsObject(eDs_Slab, 1), CResultCase(eDs_LoadCase, 1, 0, false), 0,
                      eCS_Local, eRL_Element, eEE_Maximum),
        CKQ_ResultKey(kType, CKQ_DsObject(eDs_Slab, -1), CResultCase(eDs_Combination, -4, 0, false),
                      0, eCS_Local, eRL_Element, eEE_None),
    };
    for (std::size_t i = 0; i < keys.size(); ++i)
        store.Save(Table(keys[i], 1, 1, static_cast<double>(i)));
    ASSERT_EQ(store.List().size(), keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i)
        EXPECT_EQ(store.Load(keys[i])->GetValue(0, 0), static_cast<double>(i))
            << keys[i].ToString();
}

TEST_F(GarTest, SavingAgainReplacesTheResult) {
    GarStore store(Gar());
    store.Save(Table(SlabKey(1), 1, 5, 0.0));
    CKQ_Result second = Table(SlabKey(1), 1, 3, 1000.0);
    second.SetValue(5, 0, -1.0); // now six columns
    EXPECT_TRUE(store.Save(second, true));
    auto loaded = store.Load(SlabKey(1));
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->GetCountOfRows(), 3u);
    EXPECT_EQ(loaded->GetCountOfColumns(), 6u);
    EXPECT_TRUE(*loaded == second);
    EXPECT_EQ(store.List().size(), 1u);
}

TEST_F(GarTest, SavingWithoutReplaceKeepsTheStoredResult) {
    GarStore store(Gar());
    CKQ_Result first = Table(SlabKey(1), 1, 2, 0.0);
    store.Save(first);
    EXPECT_FALSE(store.Save(Table(SlabKey(1), 1, 2, 50.0), false));
    EXPECT_TRUE(*store.Load(SlabKey(1)) == first);
}

TEST_F(GarTest, AFailureMidSaveLeavesTheEarlierResult) {
    GarStore store(Gar());
    CKQ_Result first = Table(SlabKey(1), 1, 10, 0.0);
    store.Save(first);
    host::outcome::SetSaveRowHook([](const CKQ_ResultKey&, unsigned long row) {
        if (row == 6)
            throw std::runtime_error("disk gone");
    });
    EXPECT_THROW(store.Save(Table(SlabKey(1), 1, 10, 500.0)), std::runtime_error);
    host::outcome::SetSaveRowHook({});
    auto loaded = store.Load(SlabKey(1));
    ASSERT_TRUE(loaded);
    EXPECT_TRUE(*loaded == first);
    EXPECT_EQ(store.List().size(), 1u);
    // And the store still works.
    EXPECT_TRUE(store.Save(Table(SlabKey(1), 1, 10, 500.0)));
    EXPECT_EQ(store.Load(SlabKey(1))->GetValue(0, 0), 500.0);
}

TEST_F(GarTest, AFailedFirstSaveLeavesNoTable) {
    GarStore store(Gar());
    host::outcome::SetSaveRowHook(
        [](const CKQ_ResultKey&, unsigned long) { throw std::runtime_error("fail"); });
    EXPECT_THROW(store.Save(Table(SlabKey(4), 1, 3, 0.0)), std::runtime_error);
    host::outcome::SetSaveRowHook({});
    EXPECT_TRUE(store.List().empty());
    EXPECT_EQ(Query("SELECT count(*) FROM sqlite_master WHERE name LIKE 'r_%'"), "0");
}

using GarDeathTest = GarTest;

TEST_F(GarDeathTest, ACrashMidSaveLeavesTheEarlierResult) {
    CKQ_Result first = Table(SlabKey(1), 1, 20, 0.0);
    GarStore(Gar()).Save(first);
    EXPECT_EXIT(
        {
            GarStore store(Gar());
            host::outcome::SetSaveRowHook([](const CKQ_ResultKey&, unsigned long row) {
                if (row == 12)
                    std::_Exit(3); // no unwinding, no rollback: the journal must do it
            });
            store.Save(Table(SlabKey(1), 1, 20, 900.0));
        },
        ::testing::ExitedWithCode(3), "");
    // The hot journal beside P.GAR is rolled back when the store opens again.
    GarStore store(Gar());
    auto loaded = store.Load(SlabKey(1));
    ASSERT_TRUE(loaded);
    EXPECT_TRUE(*loaded == first);
}

TEST_F(GarTest, AFileThatIsNoStore) {
    Write("proj.GAR",
          "this is not a database, just some text that is long enough to look like one........");
    EXPECT_THROW(GarStore store(Gar()), GarError);
    EXPECT_THROW(GarStore store(Dir() / "missing.GAR", false), GarError);
}

TEST_F(GarTest, ReadingWritesNothingAndDoesNotWaitForASave) {
    GarStore(Gar()).Save(Table(SlabKey(1), 1, 3, 7.0));
    // Another process is in the middle of a save: it holds the write lock.
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(Gar().c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(writer, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    const auto start = std::chrono::steady_clock::now();
    {
        const GarStore reader(Gar(), false);
        ASSERT_EQ(reader.List().size(), 1u);
        auto loaded = reader.Load(SlabKey(1));
        ASSERT_TRUE(loaded);
        EXPECT_EQ(loaded->GetValue(3, 2), 7.0 + 20.0 + 3.0);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_EQ(sqlite3_exec(writer, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(writer);
}

TEST_F(GarTest, ADatabaseOfAnotherKindIsRefusedAndLeftAsItIs) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(Gar().c_str(), &db), SQLITE_OK);
    ASSERT_EQ(
        sqlite3_exec(db, "CREATE TABLE t(x); INSERT INTO t VALUES (1);", nullptr, nullptr, nullptr),
        SQLITE_OK);
    sqlite3_close(db);
    try {
        GarStore store(Gar(), false);
        ADD_FAILURE() << "a database without gar_info was opened as a result store";
    } catch (const GarError& e) {
        EXPECT_THAT(e.what(), HasSubstr("not a result store"));
    }
    EXPECT_EQ(Query("SELECT group_concat(name) FROM sqlite_master"), "t");
}

TEST_F(GarTest, AnEmptyFileReadsAsAnEmptyStore) {
    Write("proj.GAR", "");
    {
        GarStore store(Gar(), false);
        EXPECT_TRUE(store.List().empty());
        EXPECT_FALSE(store.Load(SlabKey(1)));
        EXPECT_FALSE(store.Remove(SlabKey(1)));
        EXPECT_EQ(std::filesystem::file_size(Gar()), 0u);
        // Saving through that store makes the schema first.
        EXPECT_TRUE(store.Save(Table(SlabKey(2), 4, 2, 0.0)));
    }
    GarStore again(Gar(), false);
    ASSERT_EQ(again.List().size(), 1u);
    EXPECT_EQ(again.List()[0].key, SlabKey(2));
}

TEST_F(GarTest, RemoveDropsTheResult) {
    GarStore store(Gar());
    store.Save(Table(SlabKey(1), 1, 2, 0.0));
    EXPECT_TRUE(store.Remove(SlabKey(1)));
    EXPECT_FALSE(store.Remove(SlabKey(1)));
    EXPECT_TRUE(store.List().empty());
}

TEST(CKQ_ResultTest, CellsGrowColumnsAndCheckRows) {
    CKQ_Result r(SlabKey(1), {4, 5});
    EXPECT_EQ(r.GetCountOfColumns(), 0u);
    r.SetValue(2, 1, 7.0);
    EXPECT_EQ(r.GetCountOfColumns(), 3u);
    EXPECT_TRUE(std::isnan(r.GetValue(0, 0)));
    EXPECT_EQ(r.GetValue(2, 1), 7.0);
    EXPECT_THROW(r.SetValue(0, 2, 1.0), std::out_of_range);
    EXPECT_THROW(r.SetValue(CKQ_Result::c_nMaxColumns, 0, 1.0), std::out_of_range);
    EXPECT_THROW(r.GetValue(3, 0), std::out_of_range);
    EXPECT_THROW(r.GetElementId(2), std::out_of_range);
    EXPECT_THROW(r.SetColumnName(0, "a,b"), std::invalid_argument);
}

TEST(CKQ_ResultKeyTest, ReadableForm) {
    EXPECT_EQ(SlabKey(3, 2).ToString(), "{AC98000C-E79E-4365-877E-0A3F95AA42F4} slab 3, load case "
                                        "2/0/0, flags 0, cs 1, loc 0, env 0");
    EXPECT_LT(SlabKey(1, 2), SlabKey(2, 1));
    EXPECT_EQ(SlabKey(1), SlabKey(1));
}

// Changes the store behind the program's back, as a crafted or damaged file would.
void Tamper(const std::filesystem::path& gar, const std::string& sql) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(gar.c_str(), &db), SQLITE_OK);
    char* error = nullptr;
    EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error), SQLITE_OK)
        << (error ? error : "");
    sqlite3_free(error);
    sqlite3_close(db);
}

TEST_F(GarTest, ATableNameOfTheFilesChoosingIsRefusedNotRun) {
    GarStore(Gar()).Save(Table(SlabKey(1), 1, 2, 0.0));
    Tamper(Gar(), "UPDATE gar_results SET table_name = "
                  "'x\" WHERE 0; DROP TABLE gar_info; --'");
    const GarStore store(Gar(), false);
    try {
        store.Load(SlabKey(1));
        FAIL() << "a table name the schema does not give was used";
    } catch (const host::outcome::GarError& e) {
        EXPECT_NE(std::string(e.what()).find("the catalog names the table"), std::string::npos)
            << e.what();
    }
    EXPECT_EQ(Query("SELECT value FROM gar_info WHERE key = 'format'"), "1");
}

TEST_F(GarTest, AWildColumnOrRowCountIsADamagedStoreNotAnAllocation) {
    GarStore(Gar()).Save(Table(SlabKey(1), 1, 2, 0.0));
    Tamper(Gar(), "UPDATE gar_results SET column_count = 1000000000");
    EXPECT_THROW(GarStore(Gar(), false).Load(SlabKey(1)), host::outcome::GarError);
    Tamper(Gar(), "UPDATE gar_results SET column_count = 4, row_count = -5");
    EXPECT_THROW(GarStore(Gar(), false).Load(SlabKey(1)), host::outcome::GarError);
}

using host::outcome::GarSaveBatch;

TEST_F(GarTest, ABatchStoresEverySlabAtItsCommitAndNoneBefore) {
    GarSaveBatch batch(Gar());
    ASSERT_EQ(GarSaveBatch::StoreFor(Project().string() + ".other"), nullptr);
    GarStore* store = GarSaveBatch::StoreFor(Gar());
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(GarSaveBatch::StoreFor(Gar()), store); // one connection for the whole pass
    for (int slab = 1; slab <= 3; ++slab)
        EXPECT_TRUE(store->Save(Table(SlabKey(slab), 1, 4, slab)));
    // A reader meanwhile sees an empty store, not a part of the pass.
    EXPECT_TRUE(GarStore(Gar(), false).List().empty());
    batch.Commit();
    EXPECT_EQ(GarStore(Gar(), false).List().size(), 3u);
}

TEST_F(GarTest, ABatchThatEndsWithoutCommitLeavesThePreviousStore) {
    GarStore(Gar()).Save(Table(SlabKey(1), 1, 4, 0.0));
    {
        GarSaveBatch batch(Gar());
        GarSaveBatch::StoreFor(Gar())->Save(Table(SlabKey(1), 1, 4, 100.0));
        GarSaveBatch::StoreFor(Gar())->Save(Table(SlabKey(2), 1, 4, 200.0));
    }
    GarStore store(Gar(), false);
    ASSERT_EQ(store.List().size(), 1u);
    EXPECT_EQ(store.Load(SlabKey(1))->GetValue(0, 0), 0.0);
}

TEST_F(GarTest, AFailedSaveInABatchRollsBackItselfOnly) {
    GarSaveBatch batch(Gar());
    GarStore* store = GarSaveBatch::StoreFor(Gar());
    store->Save(Table(SlabKey(1), 1, 4, 1.0));
    host::outcome::SetSaveRowHook([](const CKQ_ResultKey& key, unsigned long row) {
        if (key.GetDsObject().GetID() == 2 && row == 2)
            throw std::runtime_error("disk gone");
    });
    EXPECT_THROW(store->Save(Table(SlabKey(2), 1, 4, 2.0)), std::runtime_error);
    host::outcome::SetSaveRowHook({});
    store->Save(Table(SlabKey(3), 1, 4, 3.0));
    batch.Commit();
    const auto stored = GarStore(Gar(), false).List();
    ASSERT_EQ(stored.size(), 2u);
    EXPECT_EQ(stored[0].key.GetDsObject().GetID(), 1);
    EXPECT_EQ(stored[1].key.GetDsObject().GetID(), 3);
}

TEST_F(GarTest, OneBatchAtATime) {
    GarSaveBatch batch(Gar());
    EXPECT_THROW(GarSaveBatch second(Gar()), std::logic_error);
    batch.Commit(); // nothing saved: nothing to commit, no file made
    EXPECT_FALSE(std::filesystem::exists(Gar()));
}

TEST_F(GarDeathTest, ACrashMidBatchLeavesNoPartOfThePass) {
    GarStore(Gar()).Save(Table(SlabKey(1), 1, 5, 0.0));
    EXPECT_EXIT(
        {
            GarSaveBatch batch(Gar());
            GarStore* store = GarSaveBatch::StoreFor(Gar());
            store->Save(Table(SlabKey(1), 1, 5, 100.0));
            store->Save(Table(SlabKey(2), 1, 5, 200.0));
            host::outcome::SetSaveRowHook([](const CKQ_ResultKey&, unsigned long row) {
                if (row == 3)
                    std::_Exit(3);
            });
            store->Save(Table(SlabKey(3), 1, 5, 300.0));
        },
        ::testing::ExitedWithCode(3), "");
    GarStore store(Gar(), false);
    ASSERT_EQ(store.List().size(), 1u);
    EXPECT_EQ(store.Load(SlabKey(1))->GetValue(0, 0), 0.0);
}

} // namespace
