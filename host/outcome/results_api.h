#pragma once
// The result store over a project P on disk (see project.h for the files and the numbering).
//
//   CKQ_ResultsAPI store;
//   store.SetSource(L"/data/floor", 0);          // P, without extension
//   if (store.Init(eST_Default, eMT_Analysis, true, 0) != 0) ... store.GetLastErrorMessage()
//   store.GetNoOfNodes(); store.NodeCoords(1); store.GetSolverLink()->GetMaxSlabMacroID();
//
// Ids are one-based throughout. Queries before a successful Init throw std::logic_error; an id
// outside the model throws std::out_of_range (the store decides, callers do not check). The
// operations are virtual so that tests can stand in for the store.
#include "host/framework/cstring.h"
#include "host/outcome/enums.h"
#include "host/outcome/project.h"
#include "host/outcome/result.h"
#include "host/outcome/result_key.h"
#include "host/outcome/solver_link.h"
#include "host/shapekit/point3d.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class CKQ_FemResultsAPI {
public:
    // Init's answers.
    enum eInitResult : int {
        eIR_OK = 0,
        eIR_NoSource = 1,           // SetSource was not called, or with an empty path
        eIR_MeshNotFound = 2,       // P.msh does not exist
        eIR_MeshInvalid = 3,        // P.msh cannot be read (see GetLastErrorMessage)
        eIR_ProjectDataInvalid = 4, // P.toml cannot be read, or does not match P.msh
    };

    CKQ_FemResultsAPI() = default;
    virtual ~CKQ_FemResultsAPI() = default;
    CKQ_FemResultsAPI(const CKQ_FemResultsAPI&) = default;
    CKQ_FemResultsAPI& operator=(const CKQ_FemResultsAPI&) = default;

    // Remembers P and the source flag (kept, not interpreted) for Init.
    virtual void SetSource(const CString& projectPath, unsigned char sourceFlag);

    // Opens the project: reads P.msh and P.toml. 0 on success, else an eInitResult code, with
    // the reason in GetLastErrorMessage(). A project without P.toml opens (0) but has no
    // solver link: the solver's data is missing. The solver type, model type, flag and last
    // argument are kept, not interpreted. P.GAR is not touched.
    virtual int Init(Outcome64Enums::eSolverType solverType, Outcome64Enums::eModelType modelType,
                     bool flag, long reserved);

    // P: the absolute project path without extension.
    virtual CString GetProjectNameWithPath(Outcome64Enums::eModelType modelType,
                                           long reserved) const;

    virtual unsigned long GetNoOfNodes() const;
    virtual CKQPoint3D NodeCoords(unsigned long id) const;
    // Clears `nodes` and fills the element's one-based node ids in its own order. Only
    // eDim_Surface elements exist; another dimension throws std::invalid_argument.
    virtual void GetNodesOnElement(Outcome64Enums::eDimension dimension, unsigned long id,
                                   std::vector<unsigned long>& nodes) const;
    // The first element id of the slab; count receives its number of elements.
    virtual unsigned long GetElementsOnSlab(unsigned long slabId, unsigned long& count) const;
    virtual double GetFemMeshElementArea(unsigned long id) const;
    // The thickness of the element's slab (from P.toml; std::logic_error without it).
    virtual double GetFemMeshElementThickness(unsigned long id) const;
    virtual unsigned long GetCountOfDefNodes(unsigned long id) const;

    // Stores a filled table in P.GAR. With replace true an existing result of the key is
    // replaced atomically; with false it is kept and 0 is returned. 1 when stored. Database
    // failures throw host::outcome::GarError; a null table throws std::invalid_argument.
    virtual int SaveResult(const std::shared_ptr<CKQ_Result>& result, bool replace);

    // Beyond the host's operations: the element count, the model itself, and why Init failed.
    unsigned long GetNoOfElements() const;
    const host::outcome::Project& GetProject() const; // std::logic_error before Init
    bool IsOpen() const { return m_project != nullptr; }
    const CString& GetLastErrorMessage() const { return m_lastError; }
    unsigned char GetSourceFlag() const { return m_sourceFlag; }
    Outcome64Enums::eSolverType GetSolverType() const { return m_solverType; }

protected:
    const host::outcome::MeshElement& Element(unsigned long id) const;
    std::filesystem::path GarPath() const;

    // Set by Init: the solver link of P.toml, or nothing.
    std::optional<CKQ_SolverLinkMock> m_solverLink;

private:
    CString m_source;
    unsigned char m_sourceFlag = 0;
    Outcome64Enums::eSolverType m_solverType = Outcome64Enums::eST_Default;
    CString m_lastError;
    // The opened model; copies of the store share it, as it never changes after Init.
    std::shared_ptr<const host::outcome::Project> m_project;
};

class CKQ_ResultsAPI : public CKQ_FemResultsAPI {
public:
    // The solver link of the opened project; null before Init and for a project without
    // P.toml.
    virtual CKQ_SolverLinkMock* GetSolverLink();
    // The same link for read-only callers.
    virtual const CKQ_SolverLinkMock* GetSolverLinkReadOnly() const;

    // direction 0 loads the link again from P.toml (or from the TOML file `file` when it is not
    // empty); nonzero stores it: to `file` as TOML when given, and with an empty `file` there
    // is nothing to write, as the link is P.toml's own and unchanged. Nonzero on success, 0
    // when there is no link or a file cannot be read or written.
    virtual int SerializeSolverLink(int direction, std::wstring file);

    // The result table of a key: a slab's key (eDs_Slab, slab id) gives one row per element of
    // the slab in element order. When P.GAR holds the key its stored values are loaded,
    // otherwise every cell is NaN. Other data-set kinds and unknown slabs throw
    // std::invalid_argument / std::out_of_range.
    virtual std::shared_ptr<CKQ_Result> GetResultTable(const CKQ_ResultKey& key);

    // The one-based element id of a row in `element` (0 for a row without element) and the
    // id of the table's slab in `extra`; returns 1 when the row has an element, 0 otherwise
    // (also for a row outside the table).
    virtual int GetFemMeshElementIndex(CKQ_Result& result, unsigned long row,
                                       unsigned long& element, unsigned long& extra) const;

    // Every result stored in P.GAR (empty when there is no P.GAR), and one of them.
    std::vector<CKQ_ResultKey> GetStoredResultKeys() const;
    std::shared_ptr<CKQ_Result> LoadStoredResult(const CKQ_ResultKey& key) const; // null if none
};

namespace host::outcome {

// A test seam: asked by CKQ_FemResultsAPI::Init before anything else, with the project path
// given to SetSource. It returns 0 to let Init run, or a code that Init answers at once as if
// the host had failed with it: the store stays closed, without solver link, and
// GetLastErrorMessage names the code. An empty hook removes it. The hook is the whole
// process's; SetInitFaultHook returns the previous one.
using InitFaultHook = std::function<int(const CString& projectPath)>;
InitFaultHook SetInitFaultHook(InitFaultHook hook);

// Installs an Init fault hook for the lifetime of the object and puts the previous one back.
class ScopedInitFaultHook {
public:
    explicit ScopedInitFaultHook(InitFaultHook hook)
        : m_previous(SetInitFaultHook(std::move(hook))) {}
    ~ScopedInitFaultHook() { SetInitFaultHook(std::move(m_previous)); }
    ScopedInitFaultHook(const ScopedInitFaultHook&) = delete;
    ScopedInitFaultHook& operator=(const ScopedInitFaultHook&) = delete;

private:
    InitFaultHook m_previous;
};

} // namespace host::outcome
