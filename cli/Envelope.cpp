#include "cli/Envelope.h"

#include "adaptivity/AdaptExecute.h"
#include "adaptivity/ResultLayout.h"
#include "adaptivity/Version.h"
#include "cli/Json.h"
#include "cli/ProjectLock.h"
#include "host/calclink/solver_writer.h"
#include "host/outcome/gar.h"
#include "host/outcome/outcome.h"
#include "host/win32/files.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <sstream>

namespace slabadapt::cli {

namespace fs = std::filesystem;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// One pass's stored tables, kept to be written again under the pass's result case.
struct PassTables {
    std::vector<SlabResult> slabs;
    std::vector<std::array<double, 4>> columns;
};

CKQ_ResultKey KeyOf(long slab, int resultCase, bool envelope) {
    using namespace Outcome64Enums;
    return CKQ_ResultKey(c_guidMeshErrorAndRefinement,
                         CKQ_DsObject(eDs_Slab, static_cast<int>(slab)),
                         CResultCase(eDs_LoadCase, resultCase, 0, false), 0, eCS_Global,
                         eRL_Element, envelope ? eEE_Maximum : eEE_None);
}

// P.GAR with every pass under its result case and the envelope, written aside and renamed over
// P.GAR, so that a reader sees the last pass's store or the whole envelope, never a part.
void WriteStore(const fs::path& gar, const std::vector<PassTables>& passes,
                const MergedElements& merged, const std::vector<long>& loadCases) {
    const fs::path temporary = host::win32::TemporaryPathBeside(gar);
    std::error_code ec;
    fs::remove(temporary, ec);
    {
        host::outcome::GarStore store(temporary, true);
        std::string cases;
        for (std::size_t i = 0; i < loadCases.size(); ++i)
            cases += (i ? "," : "") + std::to_string(loadCases[i]);
        store.SetInfo("envelope_load_cases", cases);
        for (std::size_t k = 0; k < passes.size(); ++k)
            for (const SlabResult& slab : passes[k].slabs) {
                CKQ_Result table(KeyOf(slab.slab, static_cast<int>(k + 1), false), slab.elementIds,
                                 4);
                for (unsigned long c = 0; c < 4; ++c)
                    table.SetColumnName(c, results::kColumns[c].name);
                for (std::size_t r = 0; r < slab.rows.size(); ++r)
                    for (unsigned long c = 0; c < 4; ++c)
                        table.SetValue(c, static_cast<unsigned long>(r), slab.rows[r][c]);
                store.Save(table);
            }
        // The envelope, slab by slab in the rows of the first pass's tables.
        for (const SlabResult& slab : passes.front().slabs) {
            CKQ_Result table(KeyOf(slab.slab, 0, true), slab.elementIds, 5);
            for (unsigned long c = 0; c < 4; ++c)
                table.SetColumnName(c, results::kColumns[c].name);
            table.SetColumnName(4, "governing_pass");
            for (std::size_t r = 0; r < slab.elementIds.size(); ++r) {
                const unsigned long id = slab.elementIds[r];
                if (id == 0 || id > merged.columns.size())
                    continue;
                for (unsigned long c = 0; c < 4; ++c)
                    table.SetValue(c, static_cast<unsigned long>(r), merged.columns[id - 1][c]);
                table.SetValue(4, static_cast<unsigned long>(r), merged.governing[id - 1]);
            }
            store.Save(table);
        }
    }
    fs::rename(temporary, gar, ec);
    if (ec)
        throw std::runtime_error(gar.string() + ": cannot be replaced (" + ec.message() + ")");
}

std::string Fixed(double value, int decimals) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.*f", decimals, value);
    return buffer;
}

} // namespace

MergedElements MergeElementColumns(const std::vector<std::vector<std::array<double, 4>>>& passes) {
    MergedElements merged;
    const std::size_t n = passes.empty() ? 0 : passes.front().size();
    merged.columns.assign(n, {kNaN, kNaN, kNaN, kNaN});
    merged.governing.assign(n, 0);
    for (std::size_t k = 0; k < passes.size(); ++k)
        for (std::size_t e = 0; e < n && e < passes[k].size(); ++e) {
            const auto& row = passes[k][e];
            auto& out = merged.columns[e];
            for (std::size_t c = 0; c < 3; ++c)
                if (!std::isnan(row[c]) && !(row[c] <= out[c]))
                    out[c] = row[c];
            if (!std::isnan(row[3]) && !(row[3] >= out[3])) {
                out[3] = row[3];
                merged.governing[e] = static_cast<int>(k + 1);
            }
        }
    return merged;
}

std::vector<double> MergeNodalSizes(const std::vector<std::vector<double>>& passes) {
    const std::size_t n = passes.empty() ? 0 : passes.front().size();
    std::vector<double> sizes(n, 0.0);
    for (const auto& pass : passes)
        for (std::size_t i = 0; i < n && i < pass.size(); ++i)
            if (pass[i] > 0.0 && (sizes[i] == 0.0 || pass[i] < sizes[i]))
                sizes[i] = pass[i];
    return sizes;
}

int RunEnvelope(const RunOptions& options, EnvelopeReport& report, std::ostream& err) {
    report.options = options;
    report.options.project = fs::absolute(ResolveProject(options.project, err)).lexically_normal();
    const fs::path& project = report.options.project;
    const auto start = std::chrono::steady_clock::now();
    if (!options.noCheck && !CheckBeforeRun(project, options.loadCases, report.check, err))
        return report.code = kExitDataError;
    std::shared_ptr<const host::outcome::Project> shared;
    const host::outcome::Project* model = nullptr;

    std::vector<PassTables> tables;
    for (const long id : options.loadCases) {
        RunOptions pass = report.options;
        pass.loadCases = {id};
        pass.noCheck = true; // checked above, all passes at once
        RunReport run;
        const int code = RunPass(pass, run, err);
        report.passes.push_back({id, code, run.globalError});
        if (code != Success) {
            err << "slabadapt: the pass of load case " << id << " ended with "
                << (code == kExitInternal
                        ? std::string("an unexpected failure")
                        : "result " + std::to_string(code) + " (" + ResultCodeName(code) + ")")
                << "; the envelope was not made\n";
            return report.code = code;
        }
        if (model == nullptr) {
            shared = host::outcome::SharedProject(project);
            model = shared.get();
        }
        PassTables pt;
        StoredResults stored = ReadStoredResults(project, model);
        pt.columns = ElementColumns(stored, model->mesh.elements.size());
        pt.slabs = std::move(stored.slabs);
        tables.push_back(std::move(pt));
    }
    std::vector<std::vector<std::array<double, 4>>> columns;
    std::vector<std::vector<double>> nodal;
    for (const PassTables& pt : tables) {
        columns.push_back(pt.columns);
        nodal.push_back(NodalSizes(model->mesh, pt.columns));
    }
    const MergedElements merged = MergeElementColumns(columns);
    const std::vector<double> sizes = MergeNodalSizes(nodal);
    try {
        WriteStore(host::outcome::ProjectFile(project, ".GAR"), tables, merged, options.loadCases);
        std::vector<CKQPoint3D> nodes;
        for (const auto& node : model->mesh.nodes)
            nodes.push_back(node.position);
        CSolverFEMcoWriter().WriteMeshRefinements(CString(project.string()), sizes, nodes);
    } catch (const std::exception& e) {
        err << "slabadapt: the envelope cannot be written: " << e.what() << '\n';
        return report.code = kExitCannotWrite;
    }
    for (std::size_t k = 0; k < report.passes.size(); ++k)
        if (k == 0 || report.passes[k].globalError > report.globalError) {
            report.globalError = report.passes[k].globalError;
            report.governingPass = k + 1;
        }
    // The envelope's own summary, per slab.
    StoredResults envelope;
    if (!tables.empty())
        for (SlabResult slab : tables.front().slabs) {
            for (std::size_t r = 0; r < slab.rows.size(); ++r) {
                const unsigned long id = slab.elementIds[r];
                if (id >= 1 && id <= merged.columns.size())
                    slab.rows[r] = merged.columns[id - 1];
            }
            envelope.slabs.push_back(std::move(slab));
        }
    report.slabs = Summarize(envelope);
    report.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return report.code = 0;
}

int EnvelopeCommand(const RunOptions& options, std::ostream& out, std::ostream& err) {
    std::ostringstream quiet; // RunEnvelope says which project it took
    const ProjectLock lock(ResolveProject(options.project, quiet), !options.noWait, err);
    if (!lock.Held())
        return kExitBusy;
    RecoverInterruptedRun(options.project, err);
    EnvelopeReport report;
    PreviousResults previous(options.project, err);
    if (!previous.Problem().empty()) {
        err << "slabadapt: " << previous.Problem() << "; nothing was run\n";
        return kExitCannotWrite;
    }
    const int code = RunEnvelope(options, report, err);
    previous.Settle(code, err);
    const RunOptions& o = report.options;
    if (o.json) {
        out << "{\"project\": " << JsonString(o.project.string())
            << ", \"version\": " << JsonString(slabadapt::Version())
            << ", \"target\": " << JsonNumber(o.target) << ", \"envelope\": true"
            << ", \"exit_code\": " << code << ", \"passes\": [";
        for (std::size_t k = 0; k < report.passes.size(); ++k) {
            const EnvelopePass& p = report.passes[k];
            out << (k ? ", " : "") << "{\"pass\": " << k + 1 << ", \"load_case\": " << p.loadCase
                << ", \"result_code\": " << p.code << ", \"result\": "
                << JsonString(p.code >= 0 && p.code <= 6 ? ResultCodeName(p.code) : "failed")
                << ", \"global_error\": "
                << (p.code == Success ? JsonNumber(p.globalError) : "null")
                << ", \"within_target\": "
                << (p.code == Success ? (p.globalError <= o.target ? "true" : "false") : "null")
                << "}";
        }
        out << "], \"global_error\": " << (code == 0 ? JsonNumber(report.globalError) : "null")
            << ", \"governing_pass\": " << report.governingPass << ", \"within_target\": "
            << (code == 0 ? (report.globalError <= o.target ? "true" : "false") : "null")
            << ", \"slabs\": [";
        for (std::size_t i = 0; i < report.slabs.size(); ++i) {
            const SlabSummary& s = report.slabs[i];
            out << (i ? ", " : "") << "{\"slab\": " << s.slab
                << ", \"name\": " << JsonString(s.name) << ", \"elements\": " << s.elements
                << ", \"max_local_error_percent\": " << JsonNumber(s.maxLocalErrorPercent)
                << ", \"min_new_size\": " << JsonNumber(s.minNewSize)
                << ", \"max_new_size\": " << JsonNumber(s.maxNewSize) << "}";
        }
        out << "], \"seconds\": " << JsonNumber(report.seconds) << "}\n";
        return code;
    }
    if (code == kExitDataError && report.passes.empty())
        return code;
    out << "slabadapt " << slabadapt::Version() << ": envelope of " << o.loadCases.size()
        << " passes on " << o.project.string() << "\n  target " << Fixed(100.0 * o.target, 2)
        << " %\n";
    for (std::size_t k = 0; k < report.passes.size(); ++k) {
        const EnvelopePass& p = report.passes[k];
        out << "pass " << k + 1 << ": load case " << p.loadCase << ": ";
        if (p.code == Success)
            out << "global relative error " << Fixed(100.0 * p.globalError, 2) << " %"
                << (p.globalError <= o.target ? " (within the target)" : " (above the target)")
                << '\n';
        else
            out << "result " << p.code << '\n';
    }
    if (code != 0)
        return code;
    out << "envelope: largest global error " << Fixed(100.0 * report.globalError, 2) << " % (pass "
        << report.governingPass << "), "
        << (report.globalError <= o.target ? "every pass within the target"
                                           : "the mesh needs refining")
        << "\nslab  name          elements  largest local error  smallest new size\n";
    for (const SlabSummary& s : report.slabs) {
        char line[128];
        std::snprintf(line, sizeof line, "%4ld  %-12s %9zu  %17.2f %%  %17.4g\n", s.slab,
                      s.name.c_str(), s.elements, s.maxLocalErrorPercent, s.minNewSize);
        out << line;
    }
    out << "files written:\n  " << host::outcome::ProjectFile(o.project, ".GAR").string()
        << "  (every pass and the envelope: slabadapt results)\n  "
        << host::outcome::ProjectFile(o.project, ".refine.pos").string()
        << "  (the envelope's size field)\ntime: " << Fixed(report.seconds, 2) << " s\n";
    return code;
}

} // namespace slabadapt::cli
