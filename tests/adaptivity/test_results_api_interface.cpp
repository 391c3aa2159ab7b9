// The results access interface as a type: abstract, without data, copyable, with a pure
// virtual destructor that derived destructors can call; and its implementation over the store.
#include "adaptivity/AdaptivityResultsAPIImpl.h"
#include "adaptivity/IAdaptivityResultsAPI.h"
#include "tests/adaptivity/support/strintg.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

static_assert(std::is_abstract_v<IAdaptivityResultsAPI>);
static_assert(std::is_polymorphic_v<IAdaptivityResultsAPI>);
static_assert(std::has_virtual_destructor_v<IAdaptivityResultsAPI>);
static_assert(sizeof(IAdaptivityResultsAPI) == sizeof(void*),
              "no data members, only the table pointer");
static_assert(std::is_base_of_v<IAdaptivityResultsAPI, CAdaptivityResultsAPIImpl>);
static_assert(!std::is_abstract_v<CAdaptivityResultsAPIImpl>);
static_assert(std::is_default_constructible_v<CAdaptivityResultsAPIImpl>);
static_assert(std::is_copy_constructible_v<CAdaptivityResultsAPIImpl>);
static_assert(std::is_copy_assignable_v<CAdaptivityResultsAPIImpl>);

namespace {

int g_destroyed = 0;

// The table slot of a virtual operation, read from its member pointer as the Itanium C++ ABI
// lays it out (x86: 1 + byte offset in the pointer; ARM: byte offset, virtual bit in the
// adjustment); -1 for a non-virtual one.
template <class F> std::ptrdiff_t SlotOf(F operation) {
    struct Raw {
        std::uintptr_t ptr;
        std::ptrdiff_t adj;
    };
    static_assert(sizeof(F) == sizeof(Raw));
    Raw raw;
    std::memcpy(&raw, &operation, sizeof raw);
#if defined(__arm__) || defined(__aarch64__)
    if ((raw.adj & 1) == 0)
        return -1;
    return static_cast<std::ptrdiff_t>(raw.ptr / sizeof(void*));
#else
    if ((raw.ptr & 1) == 0)
        return -1;
    return static_cast<std::ptrdiff_t>((raw.ptr - 1) / sizeof(void*));
#endif
}

// Fills all 25 operations; its destructor runs the interface's own.
class MinimalApi : public IAdaptivityResultsAPI {
public:
    ~MinimalApi() override { ++g_destroyed; }
    int Init(const CString&, unsigned char, Outcome64Enums::eSolverType) override { return 7; }
    bool SerializeSolverLink(bool direction) override { return direction; }
    bool PrepareAdaptiveMeshData(const std::vector<long>& numbers) override {
        return !numbers.empty();
    }
    void ClearAdaptiveMeshData() override {}
    unsigned long GetNoOfNodes() override { return 1; }
    unsigned long GetNoOfSlabs() override { return 2; }
    unsigned long GetElementsOnSlab(unsigned long slab, unsigned long& count) override {
        count = 3;
        return slab;
    }
    void GetNodesOnElement(unsigned long, std::vector<unsigned long>& nodes) override {
        nodes = {0, 1, 2};
    }
    CKQPoint3D NodeCoords(unsigned long node) override { return {static_cast<double>(node), 0, 0}; }
    void GetIntegrationPointResults(unsigned long, unsigned long,
                                    Outcome64Enums::eIntegrationPointDataType,
                                    double* out) const override {
        out[0] = 4.0;
    }
    CKQPoint3D GetIntegrationPointGlobalCoords(unsigned long, unsigned long) const override {
        return {1, 2, 3};
    }
    CKQPoint3D GetIntegrationPointLocalCoords(unsigned long, unsigned long) const override {
        return {};
    }
    bool WriteMeshRefinement(const std::vector<double>&) override { return true; }
    bool StoreMeshErrorAndRefinementInResults(unsigned long, const std::vector<double>&,
                                              const std::vector<double>&,
                                              const std::vector<double>&,
                                              const std::vector<double>&) override {
        return false;
    }
    double GetElementArea(unsigned long) override { return 0.5; }
    double GetElementThickness(unsigned long) override { return 0.2; }
    double GetElementThicknessReduced(unsigned long) override { return 1.0; }
    Outcome64Enums::eElementType GetElementType(unsigned long) const override {
        return static_cast<Outcome64Enums::eElementType>(1);
    }
    unsigned long GetCountOfDefNodes(unsigned long) override { return 4; }
    unsigned long GetCountOfIntegrationPoints(unsigned long) const override { return 4; }
    unsigned long GetCountOfResults() const override { return 8; }
    double GetIntegrationPointWeight(unsigned long, unsigned long) const override { return 1.0; }
    unsigned long GetCountOfLoadCases() const override { return 9; }
    unsigned long GetLoadCaseIndex(unsigned long id) const override { return id; }
    void DeleteResultFiles() override {}
};

} // namespace

TEST(ResultsApiInterface, ImplementationIsUsedThroughTheInterfaceAndDestroyedThroughIt) {
    g_destroyed = 0;
    {
        std::unique_ptr<IAdaptivityResultsAPI> api = std::make_unique<MinimalApi>();
        EXPECT_EQ(api->Init(CString(L"x"), 0, static_cast<Outcome64Enums::eSolverType>(0)), 7);
        unsigned long count = 0;
        EXPECT_EQ(api->GetElementsOnSlab(5, count), 5u);
        EXPECT_EQ(count, 3u);
        EXPECT_EQ(api->GetLoadCaseIndex(12), 12u);
        EXPECT_FALSE(api->StoreMeshErrorAndRefinementInResults(1, {}, {}, {}, {}));
    }
    EXPECT_EQ(g_destroyed, 1);
}

TEST(ResultsApiInterface, ImplementationCopiesCarryTheOpenedStore) {
    slabadapt::test::ScratchDir dir;
    slabadapt::test::WriteBytes(
        dir / "p.msh", "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$PhysicalNames\n1\n2 1 \"s\"\n"
                       "$EndPhysicalNames\n$Nodes\n3\n1 0 0 0\n2 1 0 0\n3 0 1 0\n$EndNodes\n"
                       "$Elements\n1\n1 2 2 1 1 1 2 3\n$EndElements\n");
    slabadapt::test::WriteBytes(dir / "p.toml", "[[slab]]\ntag = 1\nthickness = 0.2\n");
    CAdaptivityResultsAPIImpl api;
    ASSERT_EQ(api.Init(dir.Project("p"), 0, static_cast<Outcome64Enums::eSolverType>(0)), 0);
    CAdaptivityResultsAPIImpl copy(api);
    CAdaptivityResultsAPIImpl assigned;
    assigned = api;
    for (CAdaptivityResultsAPIImpl* each : {&copy, &assigned}) {
        EXPECT_EQ(each->GetNoOfNodes(), 3u);
        EXPECT_EQ(each->GetNoOfSlabs(), 1u);
        EXPECT_EQ(each->NodeCoords(2), CKQPoint3D(0, 1, 0));
    }
}

// The host calls the module through the table, so the order of the operations is part of the
// binary interface: the destructor first (two entries in this ABI, complete and deleting), then
// the 25 operations in their fixed order; the implementation overrides them in the same slots.
TEST(ResultsApiInterface, OperationsOccupyTheirSlotsInOrder) {
    using I = IAdaptivityResultsAPI;
    using C = CAdaptivityResultsAPIImpl;
    const std::ptrdiff_t first = 2; // behind the two destructor entries
    const std::ptrdiff_t slots[] = {
        SlotOf(&I::Init),
        SlotOf(&I::SerializeSolverLink),
        SlotOf(&I::PrepareAdaptiveMeshData),
        SlotOf(&I::ClearAdaptiveMeshData),
        SlotOf(&I::GetNoOfNodes),
        SlotOf(&I::GetNoOfSlabs),
        SlotOf(&I::GetElementsOnSlab),
        SlotOf(&I::GetNodesOnElement),
        SlotOf(&I::NodeCoords),
        SlotOf(&I::GetIntegrationPointResults),
        SlotOf(&I::GetIntegrationPointGlobalCoords),
        SlotOf(&I::GetIntegrationPointLocalCoords),
        SlotOf(&I::WriteMeshRefinement),
        SlotOf(&I::StoreMeshErrorAndRefinementInResults),
        SlotOf(&I::GetElementArea),
        SlotOf(&I::GetElementThickness),
        SlotOf(&I::GetElementThicknessReduced),
        SlotOf(&I::GetElementType),
        SlotOf(&I::GetCountOfDefNodes),
        SlotOf(&I::GetCountOfIntegrationPoints),
        SlotOf(&I::GetCountOfResults),
        SlotOf(&I::GetIntegrationPointWeight),
        SlotOf(&I::GetCountOfLoadCases),
        SlotOf(&I::GetLoadCaseIndex),
        SlotOf(&I::DeleteResultFiles),
    };
    ASSERT_EQ(std::size(slots), 25u);
    for (std::size_t k = 0; k < std::size(slots); ++k)
        EXPECT_EQ(slots[k], first + static_cast<std::ptrdiff_t>(k)) << "operation " << k + 1;

    const std::ptrdiff_t implementation[] = {
        SlotOf(&C::Init),
        SlotOf(&C::SerializeSolverLink),
        SlotOf(&C::PrepareAdaptiveMeshData),
        SlotOf(&C::ClearAdaptiveMeshData),
        SlotOf(&C::GetNoOfNodes),
        SlotOf(&C::GetNoOfSlabs),
        SlotOf(&C::GetElementsOnSlab),
        SlotOf(&C::GetNodesOnElement),
        SlotOf(&C::NodeCoords),
        SlotOf(&C::GetIntegrationPointResults),
        SlotOf(&C::GetIntegrationPointGlobalCoords),
        SlotOf(&C::GetIntegrationPointLocalCoords),
        SlotOf(&C::WriteMeshRefinement),
        SlotOf(&C::StoreMeshErrorAndRefinementInResults),
        SlotOf(&C::GetElementArea),
        SlotOf(&C::GetElementThickness),
        SlotOf(&C::GetElementThicknessReduced),
        SlotOf(&C::GetElementType),
        SlotOf(&C::GetCountOfDefNodes),
        SlotOf(&C::GetCountOfIntegrationPoints),
        SlotOf(&C::GetCountOfResults),
        SlotOf(&C::GetIntegrationPointWeight),
        SlotOf(&C::GetCountOfLoadCases),
        SlotOf(&C::GetLoadCaseIndex),
        SlotOf(&C::DeleteResultFiles),
    };
    for (std::size_t k = 0; k < std::size(implementation); ++k)
        EXPECT_EQ(implementation[k], slots[k]) << "operation " << k + 1;
}

// Which operations are const is part of their signatures, and so of the interface.
TEST(ResultsApiInterface, ConstOperationsAreTheQueriesOfTheMeshData) {
    using I = IAdaptivityResultsAPI;
    static_assert(
        std::is_same_v<decltype(&I::GetIntegrationPointResults),
                       void (I::*)(unsigned long, unsigned long,
                                   Outcome64Enums::eIntegrationPointDataType, double*) const>);
    static_assert(std::is_same_v<decltype(&I::GetIntegrationPointGlobalCoords),
                                 CKQPoint3D (I::*)(unsigned long, unsigned long) const>);
    static_assert(std::is_same_v<decltype(&I::GetIntegrationPointLocalCoords),
                                 CKQPoint3D (I::*)(unsigned long, unsigned long) const>);
    static_assert(std::is_same_v<decltype(&I::GetElementType),
                                 Outcome64Enums::eElementType (I::*)(unsigned long) const>);
    static_assert(
        std::is_same_v<decltype(&I::GetCountOfDefNodes), unsigned long (I::*)(unsigned long)>);
    static_assert(std::is_same_v<decltype(&I::GetCountOfIntegrationPoints),
                                 unsigned long (I::*)(unsigned long) const>);
    static_assert(std::is_same_v<decltype(&I::GetCountOfResults), unsigned long (I::*)() const>);
    static_assert(std::is_same_v<decltype(&I::GetIntegrationPointWeight),
                                 double (I::*)(unsigned long, unsigned long) const>);
    static_assert(std::is_same_v<decltype(&I::GetCountOfLoadCases), unsigned long (I::*)() const>);
    static_assert(
        std::is_same_v<decltype(&I::GetLoadCaseIndex), unsigned long (I::*)(unsigned long) const>);
    static_assert(std::is_same_v<decltype(&I::GetElementArea), double (I::*)(unsigned long)>);
    static_assert(std::is_same_v<decltype(&I::GetElementThickness), double (I::*)(unsigned long)>);
    static_assert(
        std::is_same_v<decltype(&I::GetElementThicknessReduced), double (I::*)(unsigned long)>);
    static_assert(std::is_same_v<decltype(&I::Init), int (I::*)(const CString&, unsigned char,
                                                                Outcome64Enums::eSolverType)>);
    static_assert(std::is_same_v<decltype(&I::PrepareAdaptiveMeshData),
                                 bool (I::*)(const std::vector<long>&)>);
    SUCCEED();
}
