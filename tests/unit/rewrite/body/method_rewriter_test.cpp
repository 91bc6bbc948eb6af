// What the rewriter asks of the runtime, in which order, and that nothing is installed when any of
// it fails.
#include "rewrite/body/method_rewriter.h"

#include "il/listing.h"
#include "rewrite/body/body_writer.h"
#include "tests/support/allocations.h"
#include "tests/support/debug_output.h"
#include "tests/support/fake_runtime.h"
#include "tests/support/patched_import.h"

#include <gmock/gmock.h>

#include <memory_resource>
#include <new>
#include <vector>

namespace corvane::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;
using Calls = std::vector<std::string>;

constexpr ModuleID kModule = 0x1234;
constexpr mdMethodDef kMethod = 0x06000007;
constexpr HRESULT kMalformed = static_cast<HRESULT>(0x8013153A);
constexpr HRESULT kRuntimeError = static_cast<HRESULT>(0x80131354);

const Bytes kTiny = {0x0A, 0x00, 0x2A};
const Bytes kTinyMadeFat = {0x03, 0x30, 0x08, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0x00, 0x2A, 0, 0};

// One object for the runtime, its allocator and its function control: it keeps the order of the
// calls to all of them, and what the one that installs was given.
class BodyRuntime final : public FailingRuntime {
public:
    Bytes body = kTiny;
    HRESULT get_result = S_OK;
    HRESULT allocator_result = S_OK;
    HRESULT set_result = S_OK;
    bool has_memory = true;

    Bytes allocated;
    std::vector<Bytes> installed;
    ULONG allocator_references = 0;
    ULONG control_references = 0;
    // What had been written to the debugger output when the body was installed.
    std::wstring shown_before;

    ICorProfilerFunctionControl* control() { return &control_; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override { return --references_; }
    ULONG references() const { return references_; }

    HRESULT STDMETHODCALLTYPE GetILFunctionBody(ModuleID module, mdMethodDef method,
                                                LPCBYTE* header, ULONG* size) override {
        record("GetILFunctionBody", module, method);
        if (SUCCEEDED(get_result)) {
            *header = body.data();
            *size = static_cast<ULONG>(body.size());
        }
        return get_result;
    }

    HRESULT STDMETHODCALLTYPE GetILFunctionBodyAllocator(ModuleID module,
                                                         IMethodMalloc** allocator) override {
        record("GetILFunctionBodyAllocator", module, kMethod);
        if (SUCCEEDED(allocator_result)) {
            *allocator = &allocator_;
            allocator_.AddRef();
        }
        return allocator_result;
    }

    HRESULT STDMETHODCALLTYPE SetILFunctionBody(ModuleID module, mdMethodDef method,
                                                LPCBYTE header) override {
        record("SetILFunctionBody", module, method);
        EXPECT_EQ(header, allocated.data());
        return install({header, header + allocated.size()});
    }

private:
    class Allocator final : public IMethodMalloc {
    public:
        explicit Allocator(BodyRuntime& runtime) : runtime_(runtime) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
        ULONG STDMETHODCALLTYPE AddRef() override { return ++runtime_.allocator_references; }
        ULONG STDMETHODCALLTYPE Release() override { return --runtime_.allocator_references; }
        PVOID STDMETHODCALLTYPE Alloc(ULONG size) override {
            runtime_.calls.emplace_back("Alloc");
            runtime_.allocated.assign(size, 0xCC);
            return runtime_.has_memory ? runtime_.allocated.data() : nullptr;
        }

    private:
        BodyRuntime& runtime_;
    };

    class Control final : public ICorProfilerFunctionControl {
    public:
        explicit Control(BodyRuntime& runtime) : runtime_(runtime) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
        ULONG STDMETHODCALLTYPE AddRef() override { return ++runtime_.control_references; }
        ULONG STDMETHODCALLTYPE Release() override { return --runtime_.control_references; }
        HRESULT STDMETHODCALLTYPE SetCodegenFlags(DWORD) override { return E_FAIL; }
        HRESULT STDMETHODCALLTYPE SetILFunctionBody(ULONG size, LPCBYTE header) override {
            runtime_.calls.emplace_back("control SetILFunctionBody");
            return runtime_.install({header, header + size});
        }
        HRESULT STDMETHODCALLTYPE SetILInstrumentedCodeMap(ULONG, COR_IL_MAP*) override {
            return E_FAIL;
        }

    private:
        BodyRuntime& runtime_;
    };

    void record(const char* call, ModuleID module, mdMethodDef method) {
        calls.emplace_back(call);
        EXPECT_EQ(module, kModule);
        EXPECT_EQ(method, kMethod);
    }

    HRESULT install(Bytes bytes) {
        shown_before = DebugOutput::raw();
        if (SUCCEEDED(set_result)) {
            installed.push_back(std::move(bytes));
        }
        return set_result;
    }

    Allocator allocator_{*this};
    Control control_{*this};
    ULONG references_ = 1; // the test's own
};

void WINAPI say_nothing(LPCWSTR) {}

class MethodRewriterTest : public ::testing::Test {
protected:
    ~MethodRewriterTest() override {
        EXPECT_EQ(runtime.references(), 1U);
        EXPECT_EQ(runtime.allocator_references, 0U);
        EXPECT_EQ(runtime.control_references, 0U);
    }

    HRESULT read() { return rewriter.Read(body); }
    void read_well() { ASSERT_EQ(read(), S_OK); }

    void expect_nothing_shown_or_installed() {
        EXPECT_THAT(runtime.installed, IsEmpty());
        EXPECT_EQ(output.raw(), L"");
    }

    DebugOutput output;
    BodyRuntime runtime;
    MethodRewriter rewriter{&runtime, kModule, kMethod};
    MethodRewriter controlled{&runtime, kModule, kMethod, runtime.control()};
    MethodBody body;
};

TEST_F(MethodRewriterTest, ReadsTheBody) {
    EXPECT_EQ(read(), S_OK);
    EXPECT_THAT(runtime.calls, ElementsAre("GetILFunctionBody"));
    ASSERT_EQ(body.instruction_count(), 2U);
    EXPECT_EQ(body.first()->opcode, Opcode::kNop);
    EXPECT_EQ(body.first()->next->opcode, Opcode::kRet);
    EXPECT_FALSE(body.tiny);
    EXPECT_EQ(output.raw(), L"");
}

TEST_F(MethodRewriterTest, AnswersWhatTheRuntimeAnswersToReading) {
    runtime.get_result = kRuntimeError;
    EXPECT_EQ(read(), kRuntimeError);
    EXPECT_THAT(runtime.calls, ElementsAre("GetILFunctionBody"));
    EXPECT_EQ(body.instruction_count(), 0U);
}

TEST_F(MethodRewriterTest, RefusesMalformedCode) {
    for (const Bytes& malformed : {Bytes{}, Bytes{0x06, 0xFE}, Bytes{0x06, 0xF8}, Bytes{0x0A, 0x2B},
                                   Bytes{0x0A, 0xFE, 0x26}, Bytes{0x0A, 0x00}}) {
        runtime.body = malformed;
        MethodBody refused;
        EXPECT_EQ(rewriter.Read(refused), kMalformed);
    }
}

TEST_F(MethodRewriterTest, ReadsNoFurtherThanTheRuntimeSays) {
    runtime.body = {0x13, 0x30, 0x08, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0x00, 0x2A};
    EXPECT_EQ(read(), kMalformed);
}

TEST_F(MethodRewriterTest, RunsOutOfMemoryReading) {
    std::pmr::memory_resource* const usual =
        std::pmr::set_default_resource(std::pmr::null_memory_resource());
    MethodBody starved;
    std::pmr::set_default_resource(usual);
    EXPECT_EQ(rewriter.Read(starved), E_OUTOFMEMORY);
}

TEST_F(MethodRewriterTest, InstallsMemoryOfTheModule) {
    read_well();
    EXPECT_EQ(rewriter.Write(body), S_OK);
    EXPECT_THAT(runtime.calls, ElementsAre("GetILFunctionBody", "GetILFunctionBodyAllocator",
                                           "Alloc", "SetILFunctionBody"));
    EXPECT_THAT(runtime.installed, ElementsAre(kTinyMadeFat));
}

TEST_F(MethodRewriterTest, InstallsThroughAFunctionControl) {
    ASSERT_EQ(controlled.Read(body), S_OK);
    EXPECT_EQ(controlled.Write(body), S_OK);
    EXPECT_THAT(runtime.calls, ElementsAre("GetILFunctionBody", "control SetILFunctionBody"));
    EXPECT_THAT(runtime.installed, ElementsAre(kTinyMadeFat));
}

constexpr wchar_t kDump[] =
    L"(16 bytes)\n    0x03,0x30,0x08,0x00,0x02,0x00,0x00,0x00,0x00,0x00,0x00,0x00,0x00,0x2a,0x00,"
    L"0x00\n    Header type: FAT (code size: 2, flags: 3 (), max stack: 8, signature token: 0)\n"
    L"    Code section (2 bytes): 0x00,0x2a\n    Code section padded by 2 bytes: 0x00,0x00\n";

TEST_F(MethodRewriterTest, ShowsTheDumpAloneBeforeInstalling) {
    read_well();
    ASSERT_EQ(rewriter.Write(body), S_OK);
    EXPECT_EQ(output.raw(), kDump);
    EXPECT_EQ(output.wide_lines(), 1);
    EXPECT_EQ(output.narrow_lines(), 0);
    EXPECT_EQ(runtime.shown_before, kDump);
}

TEST_F(MethodRewriterTest, ShowsTheSameThroughAFunctionControl) {
    ASSERT_EQ(controlled.Read(body), S_OK);
    ASSERT_EQ(controlled.Write(body), S_OK);
    EXPECT_EQ(output.raw(), kDump);
    EXPECT_EQ(runtime.shown_before, kDump);
}

TEST_F(MethodRewriterTest, ListsBehindTheDumpWhereTheThresholdLetsIt) {
    read_well();
    rewriter.listing_threshold = 4;
    ASSERT_EQ(rewriter.Write(body), S_OK);
    EXPECT_EQ(output.text(), std::wstring(kDump) + L"\n" +
                                 L"[]il_disassembler:() : Code section:\n\n"
                                 L"[]il_disassembler:() :  IL_0000: nop \t\t 0x00\n\n"
                                 L"[]il_disassembler:() :  IL_0001: ret \t\t 0x2a\n\n"
                                 L"[]il_disassembler:() : Exception handling section:\n\n"
                                 L"[]il_disassembler:() : <empty>\n");
    EXPECT_EQ(output.wide_lines(), 1);
    EXPECT_EQ(output.narrow_lines(), 5);
    EXPECT_EQ(runtime.shown_before, output.raw());
}

TEST_F(MethodRewriterTest, ShowsALongBodyInOnePiece) {
    for (int i = 0; i < 20'000; ++i) {
        body.insert_before(body.sentinel(), Opcode::kNop);
    }
    body.insert_before(body.sentinel(), Opcode::kRet);
    ASSERT_EQ(rewriter.Write(body), S_OK);
    ASSERT_EQ(runtime.installed.size(), 1U);
    const Bytes& bytes = runtime.installed.front();
    EXPECT_EQ(output.raw(), dumpBody(bytes.data(), static_cast<std::uint32_t>(bytes.size())));
    EXPECT_EQ(output.wide_lines(), 1);
}

TEST_F(MethodRewriterTest, RunsOutOfMemoryWithoutAnAllocator) {
    read_well();
    runtime.allocator_result = kRuntimeError;
    EXPECT_EQ(rewriter.Write(body), E_OUTOFMEMORY);
    EXPECT_THAT(runtime.calls, ElementsAre("GetILFunctionBody", "GetILFunctionBodyAllocator"));
    expect_nothing_shown_or_installed();
}

TEST_F(MethodRewriterTest, RunsOutOfMemoryWhenTheAllocatorDoes) {
    read_well();
    runtime.has_memory = false;
    EXPECT_EQ(rewriter.Write(body), E_OUTOFMEMORY);
    EXPECT_THAT(runtime.calls,
                ElementsAre("GetILFunctionBody", "GetILFunctionBodyAllocator", "Alloc"));
    expect_nothing_shown_or_installed();
}

TEST_F(MethodRewriterTest, AnswersWhatTheRuntimeAnswersToInstalling) {
    read_well();
    runtime.set_result = kRuntimeError;
    EXPECT_EQ(rewriter.Write(body), kRuntimeError);
    EXPECT_EQ(controlled.Write(body), kRuntimeError);
    EXPECT_THAT(runtime.installed, IsEmpty());
}

TEST_F(MethodRewriterTest, RunsOutOfMemoryWriting) {
    read_well();
    // A branch that widens, and a clause.
    Instruction* const nop = body.first();
    body.insert_before(nop, Opcode::kLeaveS, nop->next);
    for (int i = 0; i < 200; ++i) {
        body.insert_before(nop, Opcode::kNop);
    }
    body.AddClause(kClauseFinally, body.first(), nop, nop, body.add_slot(nop->next), 0U);
    // Whoever collects the output takes memory in an exception handler.
    const PatchedImport<void WINAPI(LPCWSTR)> silence("OutputDebugStringW", say_nothing);
    for (MethodRewriter* const writer : {&rewriter, &controlled}) {
        std::size_t granted = 0;
        for (bool has_failed = true; has_failed; ++granted) {
            HRESULT hr = S_OK;
            {
                const FailingAllocation failing(granted);
                hr = writer->Write(body);
                has_failed = FailingAllocation::has_come();
            }
            EXPECT_EQ(hr, has_failed ? E_OUTOFMEMORY : S_OK) << granted;
            EXPECT_EQ(runtime.installed.size(), has_failed ? 0U : 1U) << granted;
        }
        EXPECT_GT(granted, 4U);
        runtime.installed.clear();
    }
}

TEST_F(MethodRewriterTest, FailsForATinyBodyThatGrew) {
    read_well();
    body.tiny = true;
    for (int i = 0; i < 61; ++i) {
        body.insert_before(body.first(), Opcode::kNop);
    }
    EXPECT_EQ(rewriter.Write(body), S_OK); // 63 bytes of code
    ASSERT_EQ(runtime.installed.size(), 1U);
    EXPECT_EQ(runtime.installed.front().size(), 64U);
    EXPECT_EQ(runtime.installed.front().front(), 63 * 4 | 2);

    body.insert_before(body.first(), Opcode::kNop);
    runtime.calls.clear();
    EXPECT_EQ(rewriter.Write(body), E_FAIL);
    EXPECT_EQ(controlled.Write(body), E_FAIL);
    EXPECT_THAT(runtime.calls, IsEmpty());
    EXPECT_EQ(runtime.installed.size(), 1U);
    EXPECT_EQ(output.wide_lines(), 1);
}

TEST_F(MethodRewriterTest, RefusesAModelThatNoBytesStandFor) {
    read_well();
    body.insert_before(body.first(), Opcode::kBrS, nullptr);
    runtime.calls.clear();
    EXPECT_EQ(rewriter.Write(body), kMalformed);
    EXPECT_THAT(runtime.calls, IsEmpty());
    expect_nothing_shown_or_installed();
}

TEST_F(MethodRewriterTest, InstallsWhatWasEdited) {
    read_well();
    Instruction* const nop = body.first();
    body.insert_before(nop, Opcode::kLeaveS, nop->next);
    for (int i = 0; i < 200; ++i) {
        body.insert_before(nop, Opcode::kNop);
    }
    body.AddClause(kClauseFinally, body.first(), nop, nop, body.add_slot(nop->next), 0U);
    ASSERT_EQ(rewriter.Write(body), S_OK);
    ASSERT_EQ(runtime.installed.size(), 1U);
    const Bytes& bytes = runtime.installed.front();
    EXPECT_THAT(Bytes(bytes.begin(), bytes.begin() + 17),
                ElementsAre(0x0B, 0x30, 0x08, 0, 207, 0, 0, 0, 0, 0, 0, 0, //
                            0xDD, 201, 0, 0, 0));
    EXPECT_EQ(bytes.size(), 12U + 208 + 4 + 24);
}

} // namespace
} // namespace corvane::testing
