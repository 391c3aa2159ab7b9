#pragma once
// The estimator: the engine meerspace::MEER fed from the host's results.
//
// CAdaptivityImpl copies the host mesh (nodes, elements, integration-point positions) into
// the engine's records, answers the engine's callbacks from IAdaptivityResultsAPI, runs the
// estimation with the target error and hands the errors and the new sizes back to the host.
// Element, node and integration-point numbers are zero-based everywhere here; the engine's
// running indices equal the indices of IAdaptivityResultsAPI (elements run through all
// slabs in turn).
//
// Life cycle: construct, Init (mesh copied), Run (estimate), StoreResults,
// WriteMeshRefinement, destroy. Init is meant to run once.
#include "adaptivity/IAdaptivityResultsAPI.h"
#include "adaptivity/ResultLayout.h"
#include "meer/meer.h"

#include <cstdint>
#include <vector>

class CAdaptivityImpl : public meerspace::MEER {
public:
    // Keeps a reference to api (not owned; it must outlive this object).
    CAdaptivityImpl(IAdaptivityResultsAPI& api, double targetError);
    // The engine part is copied by the engine's shallow copy: the copy borrows the mesh
    // records of its source, which frees them. The copy must not outlive its source.
    CAdaptivityImpl(const CAdaptivityImpl& other);
    CAdaptivityImpl& operator=(const CAdaptivityImpl&) = delete;
    ~CAdaptivityImpl() override;

    // Sets the engine's options and copies the host mesh into the engine.
    void initialize() override;

    // Init calls initialize and nothing else; Run runs the estimation, after which
    // GetGlobalError holds the global relative error. Exceptions pass through both as they
    // are, and neither tidies up after one: an object whose Init failed once the node table
    // existed, or whose Run failed before the engine prepared its first region, has nodes
    // without normals, and destroying it ends the process (the engine's internal-error
    // report).
    virtual void Init();
    virtual void Run();

    // The global relative error of the whole model (a fraction); 0.0 until Run has finished.
    double GetGlobalError() const;

    // Stores the global, local and numerical errors and the new element sizes in the host's
    // results; returns whether the host accepted them.
    bool StoreResults();
    // Hands the nodal sizes to the mesher's input; returns whether the host accepted them.
    bool WriteMeshRefinement();

protected:
    // Callbacks of the engine.
    void give_superelems_to_node(std::int32_t node, std::int32_t& count,
                                 std::int32_t* elems) const override;
    meerspace::MEER_ElemDisplInterpol give_element_EDI(std::int32_t elem) override;
    double give_element_area(std::int32_t elem) const override;
    double give_element_thickness(std::int32_t elem) const override;
    double give_element_thickness_reduced(std::int32_t elem) const override;
    std::int32_t give_number_of_IPs2(std::int32_t elem) const override;
    double give_IPs2_coords_natural(std::int32_t elem, int ip, double* coords) const override;
    void give_IPs1_values(std::int32_t elem, int ip, meerspace::MEER_IPValues kind,
                          std::int32_t count, double* values) const override;
    void give_IPs2_values(std::int32_t elem, int ip, meerspace::MEER_IPValues kind,
                          std::int32_t count, double* values) const override;
    std::int32_t give_IPs1_values_count(std::int32_t elem, int ip,
                                        meerspace::MEER_IPValues kind) const override;
    std::int32_t give_IPs2_values_count(std::int32_t elem, int ip,
                                        meerspace::MEER_IPValues kind) const override;
    bool is_element_valid(std::int32_t elem) const override;

    // Callbacks of the bridge itself, used while the mesh is copied.
    virtual std::int32_t give_number_of_IPs1(std::int32_t elem) const;
    virtual void give_node_coords(std::int32_t node, double* xyz) const;
    virtual void give_IPs1_coords_global(std::int32_t elem, int ip, double* xyz) const;

private:
    std::vector<double> GetGlobalMeshErrorOnElements() const;
    std::vector<double> GetLocalMeshErrorOnElements() const;
    std::vector<double> GetNumericalMeshErrorOnElements() const;
    std::vector<double> GetMeshRefinementOnElements() const;
    // The mean new size of the elements at each node; 0.0 at a node of no element.
    std::vector<double> GetMeshRefinementOnNodes() const;
    std::vector<double> CopyElementVector(const meerspace::Dvctr& values) const;

    CKQPoint3D GiveNodeCoords(unsigned long node);
    void InitNodeCoords(unsigned long node);
    void InitIntegrationPointCoords(unsigned long elem, unsigned long ip);

    IAdaptivityResultsAPI* m_pResultsAPI; // not owned
    // Per node, the indices of the elements that use it, in ascending element order.
    slabadapt::results::NodeElementLists m_nodeToElements;
    double m_dGlobalError;
    double m_dTargetError;
};
