// What becomes of method bodies: whole rewritten bodies as golden texts, and the reasons for which
// a method keeps its own.
#include "rewrite/method_instrumenter.h"

#include "base/runtime_state.h"
#include "rewrite/body/body_reader.h"
#include "rewrite/emit/emission.h"
#include "rewrite/shape/loaded_modules.h"
#include "tests/support/fixtures.h"
#include "tests/support/il_text.h"
#include "tests/support/scratch_module_test.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <new>
#include <regex>
#include <set>
#include <thread>

namespace corvane::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const Bytes kVoid = {0x00, 0x00, 0x01};

class MethodInstrumenterTest : public ScratchModuleTest {
protected:
    void SetUp() override {
        ScratchModuleTest::SetUp();
        if (!module) {
            return;
        }
        fill_type_refs();
        value_type = module->type_ref(corlib, L"System.ValueType");
        exception = module->type_ref(corlib, L"System.Exception");
        for (const wchar_t* const name :
             {L"System.Boolean", L"System.Char", L"System.SByte", L"System.Byte", L"System.Int16",
              L"System.UInt16", L"System.Int32", L"System.UInt32", L"System.Int64",
              L"System.UInt64", L"System.Single", L"System.Double", L"System.IntPtr",
              L"System.UIntPtr"}) {
            module->type_ref(corlib, name);
        }
        point = module->type_def(L"Shop.Point", value_type);
        customer = module->type_def(L"Shop.Customer", mdTokenNil);
        // A type in a module of its own.
        guid = module->type_ref(corlib, L"System.Guid");
        EXPECT_EQ(
            module->other().DefineTypeDef(L"System.Guid", tdPublic, mdTokenNil, nullptr, &scratch_),
            S_OK);
    }

    // The coded token of a type, as it stands in signatures; of a two-byte token the two.
    static Bytes coded(mdToken token) {
        const auto row = static_cast<std::uint32_t>(RidFromToken(token));
        const std::uint32_t tag = TypeFromToken(token) == mdtTypeDef   ? 0
                                  : TypeFromToken(token) == mdtTypeRef ? 1
                                                                       : 2;
        const std::uint32_t value = row << 2 | tag;
        if (value < 0x80) {
            return {static_cast<std::uint8_t>(value)};
        }
        return {static_cast<std::uint8_t>(value >> 8 | 0x80), static_cast<std::uint8_t>(value)};
    }
    static Bytes join(std::initializer_list<Bytes> pieces) {
        Bytes all;
        for (const Bytes& piece : pieces) {
            all.insert(all.end(), piece.begin(), piece.end());
        }
        return all;
    }

    void expect_instrumented(mdMethodDef method, const std::string& golden) {
        EXPECT_EQ(instrument(method), S_OK);
        EXPECT_THAT(log(), IsEmpty());
        ASSERT_EQ(module->installations, 1);
        expect_golden("instrumented/" + golden + ".golden",
                      il_text(module->bodies[method], module->import()));
    }

    void expect_left(mdMethodDef method, const std::wstring& reason) {
        const Bytes before = module->bodies[method];
        EXPECT_GE(instrument(method), 0);
        EXPECT_EQ(module->installations, 0);
        EXPECT_EQ(module->bodies[method], before);
        EXPECT_THAT(log(), ElementsAre(L"Left as it is: " + reason));
        EXPECT_EQ(method_outcomes(), (MethodOutcomes{0, 1, 1, reason}));
        EXPECT_EQ(instrumentation_index, 1U);
    }

    bool has_user_string(const std::wstring& part) {
        HCORENUM enumeration = nullptr;
        mdString token = mdStringNil;
        ULONG count = 0;
        bool found = false;
        while (module->import().EnumUserStrings(&enumeration, &token, 1, &count) == S_OK) {
            std::wstring text(1024, L'\0');
            ULONG length = 0;
            EXPECT_EQ(module->import().GetUserString(token, text.data(), 1024, &length), S_OK);
            text.resize(length);
            found = found || text.find(part) != text.npos;
        }
        module->import().CloseEnum(enumeration);
        return found;
    }

    mdTypeRef value_type = mdTypeRefNil;
    mdTypeRef exception = mdTypeRefNil;
    mdTypeRef guid = mdTypeRefNil;
    mdTypeDef point = mdTypeDefNil;
    mdTypeDef customer = mdTypeDefNil;

private:
    mdTypeDef scratch_ = mdTypeDefNil;
};

TEST_F(MethodInstrumenterTest, WrapsAStaticMethodWithoutParameters) {
    expect_instrumented(add(L"Place", kVoid, tiny({0x00, 0x2A})), "static-void");
}

TEST_F(MethodInstrumenterTest, PassesTheReceiverOfAClass) {
    // object Place(string): ldarg.1; ret
    expect_instrumented(add(L"Place", {0x20, 0x01, 0x1C, 0x0E}, tiny({0x03, 0x2A})),
                        "instance-object");
}

TEST_F(MethodInstrumenterTest, PassesAndReplacesEveryPrimitive) {
    expect_instrumented(add(L"Place",
                            {0x00, 14, 0x08, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A,
                             0x0B, 0x0C, 0x0D, 0x18, 0x19},
                            tiny({0x16, 0x2A})),
                        "primitives");
}

TEST_F(MethodInstrumenterTest, ReplacesClassesAndObjectsOnly) {
    // Point Place(string, Customer, object, Point, Guid, int32[], Customer[], List<int32>)
    expect_instrumented(add(L"Place",
                            join({{0x00, 8, 0x11},
                                  coded(point),
                                  {0x0E, 0x12},
                                  coded(customer),
                                  {0x1C, 0x11},
                                  coded(point),
                                  {0x11},
                                  coded(guid),
                                  {0x1D, 0x08, 0x1D, 0x12},
                                  coded(customer),
                                  {0x15, 0x12},
                                  coded(exception),
                                  {1, 0x08}}),
                            tiny({0x09, 0x2A})),
                        "references");
}

TEST_F(MethodInstrumenterTest, LooksThroughReferencesToAllButStringsClassesAndObjects) {
    // void Place(ref int32, ref string, ref Customer, ref object, ref Point, ref int32[],
    // ref KeyValuePair<string, int32[]>)
    expect_instrumented(add(L"Place",
                            join({{0x00, 7, 0x01, 0x10, 0x08, 0x10, 0x0E, 0x10, 0x12},
                                  coded(customer),
                                  {0x10, 0x1C, 0x10, 0x11},
                                  coded(point),
                                  {0x10, 0x1D, 0x08, 0x10, 0x15, 0x11},
                                  coded(guid),
                                  {2, 0x0E, 0x1D, 0x08}}),
                            tiny({0x2A})),
                        "by-reference");
}

TEST_F(MethodInstrumenterTest, BoxesAGenericResult) {
    // Pair<string, int32> Place(Pair<string, int32>)
    const Bytes pair = join({{0x15, 0x11}, coded(point), {2, 0x0E, 0x08}});
    expect_instrumented(add(L"Place", join({{0x00, 1}, pair, pair}), tiny({0x02, 0x2A})),
                        "generic-value");
}

TEST_F(MethodInstrumenterTest, ReturnsArraysAsTheyAre) {
    expect_instrumented(
        add(L"Place", join({{0x00, 0, 0x1D, 0x1D, 0x12}, coded(customer)}), tiny({0x14, 0x2A})),
        "array-result");
}

TEST_F(MethodInstrumenterTest, LeadsEveryReturnToOneExit) {
    // int32 Place(bool): if (!a) return 1; return 2; with a third return that nothing leads to
    expect_instrumented(add(L"Place", {0x00, 1, 0x08, 0x02},
                            tiny({0x02, 0x2D, 0x02, 0x17, 0x2A, 0x18, 0x2A, 0x19, 0x2A})),
                        "three-returns");
}

TEST_F(MethodInstrumenterTest, LeadsEveryReturnWithoutAResultToOneExit) {
    expect_instrumented(
        add(L"Place", {0x00, 1, 0x01, 0x02}, tiny({0x02, 0x2D, 0x01, 0x2A, 0x00, 0x2A, 0x2A})),
        "three-void-returns");
}

TEST_F(MethodInstrumenterTest, KeepsCodeBehindTheLastReturnInside) {
    // if (!a) return 7; throw null
    expect_instrumented(
        add(L"Place", {0x00, 1, 0x08, 0x02}, tiny({0x02, 0x2D, 0x02, 0x1D, 0x2A, 0x14, 0x7A})),
        "trailing-throw");
}

TEST_F(MethodInstrumenterTest, KeepsTheClausesOfTheMethodInFront) {
    // br.s to the block; ret; try { nop; leave.s to the ret } finally { endfinally }
    const Bytes body = {
        0x1B, 0x30, 1,    0,    7,    0,    0,    0, 0, 0, 0, 0, // fat, init locals, a section
        0x2B, 0x01, 0x2A, 0x00, 0xDE, 0xFC, 0xDC, 0,             // the code, padded
        0x01, 16,   0,    0,    2,    0,    3,    0, 3, 6, 0, 1, 0, 0, 0, 0};
    expect_instrumented(add(L"Place", kVoid, body), "finally-at-the-end");
}

TEST_F(MethodInstrumenterTest, DropsTailPrefixes) {
    // tail. call Place; ret
    expect_instrumented(add(L"Place", kVoid, tiny({0xFE, 0x14, 0x28, 0x01, 0, 0, 0x06, 0x2A})),
                        "tail-call");
}

TEST_F(MethodInstrumenterTest, KeepsOtherPrefixesWithTheCall) {
    // ldarga.s 0; constrained. Point; tail. callvirt Place; ret
    Bytes code = {0x0F, 0x00, 0xFE, 0x16, 0, 0, 0, 0x02, 0xFE, 0x14, 0x6F, 0x01, 0, 0, 0x06, 0x2A};
    code[4] = static_cast<std::uint8_t>(RidFromToken(point));
    expect_instrumented(add(L"Place", join({{0x00, 1, 0x01, 0x11}, coded(point)}), tiny(code)),
                        "constrained-tail-call");
}

TEST_F(MethodInstrumenterTest, KeepsAReadonlyPrefixWithTheCall) {
    // readonly. tail. call Place; ret
    expect_instrumented(
        add(L"Place", kVoid, tiny({0xFE, 0x1E, 0xFE, 0x14, 0x28, 0x01, 0, 0, 0x06, 0x2A})),
        "readonly-tail-call");
}

// A type token has room for a fourth table, of which no type is.
TEST_F(MethodInstrumenterTest, PassesNothingForValueTypesOfAnUnknownKind) {
    // T Place(T, ref T)
    const Bytes unknown = {0x11, 0x07};
    expect_instrumented(
        add(L"Place", join({{0x00, 2}, unknown, unknown, {0x10}, unknown}), tiny({0x02, 0x2A})),
        "unknown-value-type");
}

TEST_F(MethodInstrumenterTest, InstrumentsAGenericMethod) {
    // string Place<T>(string)
    const mdMethodDef method = add(L"Place", {0x10, 0x01, 0x01, 0x0E, 0x0E}, tiny({0x02, 0x2A}));
    EXPECT_EQ(instrument(method, InstrumentationMode::kTable), S_OK);
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_EQ(module->installations, 1);
}

TEST_F(MethodInstrumenterTest, CastsToAClassThatATypeSpecNames) {
    const Bytes blob = join({{0x15, 0x12}, coded(customer), {1, 0x08}});
    mdTypeSpec spec = mdTypeSpecNil;
    ASSERT_EQ(
        module->emit().GetTokenFromTypeSpec(blob.data(), static_cast<ULONG>(blob.size()), &spec),
        S_OK);
    const mdMethodDef method =
        add(L"Place", join({{0x00, 1, 0x01, 0x12}, coded(spec)}), tiny({0x2A}));
    instrument(method);
    ASSERT_EQ(module->installations, 1);
    const Bytes cast = {0x74, static_cast<std::uint8_t>(spec), 0, 0, 0x1B};
    EXPECT_FALSE(std::ranges::search(module->bodies[method], cast).empty());
}

TEST_F(MethodInstrumenterTest, LeavesAMethodThatTheRuntimeSuspends) {
    const mdMethodDef method = add(L"Place", kVoid, tiny({0x2A}));
    ASSERT_EQ(module->emit().SetMethodImplFlags(method, 0x2000), S_OK);
    expect_left(
        method,
        L"it is suspended by the runtime, and returns another type than its signature says");
}

TEST_F(MethodInstrumenterTest, LeavesMethodsWithTheOldestByRefLikeTypes) {
    for (const wchar_t* const name :
         {L"System.ArgIterator", L"System.RuntimeArgumentHandle", L"System.TypedReference"}) {
        instrument(add(L"Place",
                       join({{0x00, 1, 0x01, 0x11}, coded(module->type_ref(corlib, name))}),
                       tiny({0x2A})));
        EXPECT_EQ(log().back(),
                  L"Left as it is: parameter 1 is of a by-ref-like type, which cannot "
                  L"be boxed");
    }
    EXPECT_EQ(module->installations, 0);
}

TEST_F(MethodInstrumenterTest, AddsItsLocalsBehindTheMethodsOwn) {
    // ldloc.0; ret, with one int32 local
    mdSignature locals = mdSignatureNil;
    const Bytes blob = {0x07, 0x01, 0x08};
    ASSERT_EQ(module->emit().GetTokenFromSig(blob.data(), 3, &locals), S_OK);
    Bytes body = {0x13, 0x30, 1, 0, 2, 0, 0, 0, 0, 0, 0, 0x11, 0x06, 0x2A};
    body[8] = static_cast<std::uint8_t>(locals);
    expect_instrumented(add(L"Place", {0x00, 0, 0x08}, body), "own-locals");
}

TEST_F(MethodInstrumenterTest, BoxesTheReceiverOfAValueTypeInStrictIl) {
    strict_il = true;
    expect_instrumented(add(point, L"Move", {0x20, 0, 0x01}, tiny({0x2A})),
                        "value-receiver.strict");
}

TEST_F(MethodInstrumenterTest, BoxesTheReceiverOfAGenericValueTypeInStrictIl) {
    strict_il = true;
    const mdTypeDef pair = module->type_def(L"Shop.Pair`2", value_type);
    ComPtr<IMetaDataEmit2> emit2;
    ASSERT_EQ(module->emit().QueryInterface(IID_IMetaDataEmit2, emit2.put_void()), S_OK);
    for (const ULONG number : {0, 1}) {
        mdGenericParam parameter = mdGenericParamNil;
        ASSERT_EQ(emit2->DefineGenericParam(pair, number, 0, L"T", 0, nullptr, &parameter), S_OK);
    }
    expect_instrumented(add(pair, L"Swap", {0x20, 0, 0x01}, tiny({0x2A})),
                        "generic-value-receiver.strict");
}

TEST_F(MethodInstrumenterTest, DefinesBoxingTypesInStrictIl) {
    // A module that names no primitive.
    module = nullptr;
    ScratchModuleTest::SetUp();
    strict_il = true;
    expect_instrumented(
        add(L"Place", {0x00, 1, 0x0D, 0x08}, tiny({0x23, 0, 0, 0, 0, 0, 0, 0, 0, 0x2A})),
        "boxing-types.strict");
}

// The managed library's part of a body: what it is called with by number and by text, and its
// calls. The text about a failed report is the default form's alone, and a search needs no library.
std::vector<std::string> seen_by_the_library(const std::string& text) {
    static const std::regex kSeen(
        "(ldc.i4 [0-9]+|ldstr .*|(call|callvirt|newobj) .*(Instrumentation|kite).*|box .*)");
    std::vector<std::string> seen;
    for (std::sregex_iterator line(text.begin(), text.end(), kSeen), end; line != end; ++line) {
        seen.push_back(line->str());
    }
    const auto failed = std::ranges::find_if(seen, [](const std::string& line) {
        return line.find("Failed while invoking") != std::string::npos;
    });
    if (failed != seen.end()) {
        seen.erase(failed - 1, failed + 2);
    }
    return seen;
}

TEST_F(MethodInstrumenterTest, ShowsTheLibraryTheSameInBothForms) {
    const Bytes signature = {0x20, 0x02, 0x08, 0x08, 0x10, 0x0E};
    const mdMethodDef first = add(L"Place", signature, tiny({0x03, 0x2A}));
    const mdMethodDef second = add(L"Place", signature, tiny({0x03, 0x2A}));
    instrument(first);
    strict_il = true;
    instrumentation_index = 0;
    instrument(second);
    EXPECT_EQ(module->installations, 2);
    EXPECT_NE(module->bodies[first], module->bodies[second]);
    const auto seen = seen_by_the_library(il_text(module->bodies[first], module->import()));
    EXPECT_THAT(seen, ::testing::Contains("call kite.managed.span::GenericEpilogue"));
    EXPECT_THAT(seen, ::testing::Contains("callvirt Corvane.Instrumentation."
                                          "InstrumentationDirectives::GetIndexes"));
    auto in_strict_il = seen_by_the_library(il_text(module->bodies[second], module->import()));
    EXPECT_EQ(std::erase(in_strict_il, "call Corvane.Instrumentation.Invokers::HasListeners"), 2U);
    EXPECT_EQ(seen, in_strict_il);
}

TEST_F(MethodInstrumenterTest, ReportsExceptionsInAFilterInStrictIl) {
    strict_il = true;
    // try { nop; leave.s to the end } finally { endfinally } ret
    const Bytes body = {
        0x1B, 0x30, 1,    0,    5,    0, 0, 0, 0, 0, 0, 0, // fat, init locals, a section
        0x00, 0xDE, 0x01, 0xDC, 0x2A, 0, 0, 0,             // the code, padded
        0x01, 16,   0,    0,    2,    0, 0, 0, 3, 3, 0, 1, 0, 0, 0, 0};
    expect_instrumented(add(L"Place", kVoid, body), "filter-around-finally.strict");
}

// What tells of a failed report is not even in the module: the runtime drops what a filter throws.
TEST_F(MethodInstrumenterTest, DefinesNoTextOfAFailedReportInStrictIl) {
    for (const bool strict : {false, true}) {
        strict_il = strict;
        const mdMethodDef method = add(strict ? L"Strict" : L"Plain", kVoid, tiny({0x2A}));
        instrument(method);
    }
    EXPECT_TRUE(has_user_string(L"Plain::Catch N' Throw Failed while"));
    EXPECT_TRUE(has_user_string(L"Strict::Catch N' Throw About to"));
    EXPECT_FALSE(has_user_string(L"Strict::Catch N' Throw Failed while"));
}

TEST_F(MethodInstrumenterTest, CountsTheMethodsThatItIsGiven) {
    const mdMethodDef throws = add(L"Fail", kVoid, tiny({0x14, 0x7A}));
    instrument(add(L"Place", kVoid, tiny({0x2A})));
    instrument(throws);
    const mdMethodDef third = add(L"Cancel", kVoid, tiny({0x2A}));
    instrument(third, InstrumentationMode::kTable);
    EXPECT_EQ(instrumentation_index, 3U);
    // Index 2, and the mode as the third argument of RegisterMethod.
    const std::string text = il_text(module->bodies[third], module->import());
    EXPECT_THAT(text,
                ::testing::HasSubstr("   0 ldc.i4 2\n"
                                     "   1 call Corvane.Instrumentation.Invokers::ContainsKey\n"
                                     "   2 brtrue.s -> 7\n"
                                     "   3 ldc.i4 2\n"));
    EXPECT_THAT(text, ::testing::HasSubstr("   5 ldc.i4 0\n"
                                           "   6 call "
                                           "Corvane.Instrumentation.Invokers::RegisterMethod\n"));
}

TEST_F(MethodInstrumenterTest, LeavesABodyThatIsInstrumented) {
    const mdMethodDef method = add(L"Place", kVoid, tiny({0x2A}));
    EXPECT_EQ(instrument(method), S_OK);
    const Bytes once = module->bodies[method];
    EXPECT_EQ(instrument(method), META_S_DUPLICATE); // of the last reference
    EXPECT_EQ(instrument(method, InstrumentationMode::kTable), META_S_DUPLICATE);
    EXPECT_EQ(module->bodies[method], once);
    EXPECT_EQ(module->installations, 1);
    EXPECT_EQ(instrumentation_index, 1U);
    EXPECT_THAT(log(), IsEmpty());
}

// Of many parameters: the gate's branch has its long form.
TEST_F(MethodInstrumenterTest, LeavesABodyThatIsInstrumentedInStrictIl) {
    strict_il = true;
    Bytes many = {0x00, 0x14, 0x01};
    many.insert(many.end(), 20, 0x08);
    const mdMethodDef methods[] = {add(L"Place", kVoid, tiny({0x2A})),
                                   add(L"Cancel", many, tiny({0x2A}))};
    for (const mdMethodDef method : methods) {
        EXPECT_EQ(instrument(method), method == methods[0] ? S_OK : META_S_DUPLICATE);
        const Bytes once = module->bodies[method];
        instrument(method);
        EXPECT_EQ(module->bodies[method], once);
    }
    EXPECT_EQ(module->installations, 2);
}

TEST_F(MethodInstrumenterTest, InstrumentsABodyThatOnlyBeginsAlike) {
    const mdMethodDef first = add(L"Place", kVoid, tiny({0x2A}));
    instrument(first);
    // ldc.i4 0; call ContainsKey; brtrue.s to the pop's end; ...
    Bytes copy = module->bodies[first];
    // The registration's method is another one.
    const std::size_t register_call = 12 + 5 + 5 + 2 + 5 + 5 + 5 + 1;
    copy[register_call] ^= 0x01;
    const mdMethodDef second = add(L"Cancel", kVoid, copy);
    instrument(second);
    EXPECT_EQ(module->installations, 2);
}

// Methods that keep their body.

TEST_F(MethodInstrumenterTest, LeavesAMethodWithoutAReturn) {
    expect_left(add(L"Fail", kVoid, tiny({0x14, 0x7A})), L"it has no ret instruction");
}

TEST_F(MethodInstrumenterTest, LeavesAMethodThatJumps) {
    expect_left(add(L"Place", kVoid, tiny({0x27, 0x01, 0, 0, 0x06, 0x2A})),
                L"it has a jmp instruction, which no block may hold");
}

TEST_F(MethodInstrumenterTest, LeavesAMethodWithASignatureThatCannotBeRead) {
    expect_left(add(L"Place", {0x00, 0x02, 0x01, 0x08}, tiny({0x2A})),
                L"its signature cannot be read");
}

TEST_F(MethodInstrumenterTest, LeavesAMethodWithTooManyParameters) {
    Bytes signature = {0x00, 127, 0x01};
    signature.insert(signature.end(), 127, 0x1C);
    instrument(add(L"Place", signature, tiny({0x2A})));
    EXPECT_EQ(module->installations, 1);

    module->installations = 0;
    instrumentation_index = 0;
    signature = {0x00, 0x80, 128, 0x01};
    signature.insert(signature.end(), 128, 0x1C);
    expect_left(add(L"Cancel", signature, tiny({0x2A})), L"it has more than 127 parameters");
}

TEST_F(MethodInstrumenterTest, LeavesAMethodWithTooManyLocals) {
    // Eleven more in a method with a result.
    for (const auto& [own, fits] : {std::pair{245, true}, std::pair{246, false}}) {
        Bytes blob = {0x07, 0x80, static_cast<std::uint8_t>(own)};
        blob.insert(blob.end(), static_cast<std::size_t>(own), 0x08);
        mdSignature locals = mdSignatureNil;
        ASSERT_EQ(
            module->emit().GetTokenFromSig(blob.data(), static_cast<ULONG>(blob.size()), &locals),
            S_OK);
        Bytes body = {0x03, 0x30, 1, 0, 2, 0, 0, 0, 0, 0, 0, 0x11, 0x16, 0x2A};
        body[8] = static_cast<std::uint8_t>(locals);
        body[9] = static_cast<std::uint8_t>(locals >> 8);
        const mdMethodDef method = add(L"Place", {0x00, 0, 0x08}, body);
        if (fits) {
            EXPECT_EQ(instrument(method), S_OK);
            EXPECT_EQ(module->installations, 1);
            module->installations = 0;
            instrumentation_index = 0;
        } else {
            expect_left(method, L"it has too many local variables");
        }
    }
}

// So many times ldc.i4.0; pop, then ret.
Bytes pushing(std::size_t pushes, std::uint16_t max_stack) {
    const std::size_t size = 2 * pushes + 1;
    Bytes body = {0x03, 0x30, static_cast<std::uint8_t>(max_stack),
                  static_cast<std::uint8_t>(max_stack >> 8)};
    for (int i = 0; i < 4; ++i) {
        body.push_back(static_cast<std::uint8_t>(size >> (8 * i)));
    }
    body.resize(12);
    for (std::size_t i = 0; i < pushes; ++i) {
        body.insert(body.end(), {0x16, 0x26});
    }
    body.push_back(0x2A);
    return body;
}

std::uint32_t max_stack_of(const Bytes& body) {
    return body.at(2) | std::uint32_t{body.at(3)} << 8;
}

// The header has 16 bits of the sum of all pushes. That is enough as long as it is not less than
// the method's own code takes, or the injected.
TEST_F(MethodInstrumenterTest, LeavesAMethodWhoseStackTheHeaderCannotTell) {
    const mdMethodDef small = add(L"Small", kVoid, pushing(0, 1));
    instrument(small);
    const std::uint32_t injected = max_stack_of(module->bodies[small]) - 1;
    struct Row {
        std::uint16_t own;
        std::uint32_t sum;
        bool fits;
    };
    for (const auto& [own, sum, fits] :
         {Row{1, 0xFFFF, true}, Row{1, 0x10000, false}, Row{1, 0x10004, false},
          Row{1, 0x10005, true}, Row{5, 0x10005, true}, Row{6, 0x10005, false},
          Row{200, 0x100C7, false}, Row{200, 0x100C8, true}, Row{1, 0x20004, false},
          Row{1, 0x20005, true}}) {
        SCOPED_TRACE(::testing::Message() << own << " of " << sum);
        const mdMethodDef method = add(L"Place", kVoid, pushing(sum - own - injected, own));
        const Bytes before = module->bodies[method];
        module->installations = 0;
        EXPECT_GE(instrument(method), 0);
        EXPECT_EQ(module->installations, fits ? 1 : 0);
        if (fits) {
            EXPECT_EQ(max_stack_of(module->bodies[method]), sum & 0xFFFF);
        } else {
            EXPECT_EQ(module->bodies[method], before);
            EXPECT_EQ(log().back(), L"Left as it is: its code pushes too often for the header to "
                                    L"say how much stack it takes");
        }
    }
    EXPECT_EQ(log().size(), 5U);
}

// The greatest depth of a stack while instructions are walked in the order of the list: no branch
// of the code that is walked has anything on the stack but what it takes.
class StackWalk {
public:
    StackWalk(IMetaDataImport& metadata, bool returns_value)
        : metadata_(metadata), returns_value_(returns_value) {}

    int deepest(MethodBody& body) {
        int deepest = 0;
        int depth = 0;
        for (const Instruction& instruction : body) {
            for (const ExceptionClause& clause : body.clauses) {
                if (clause.handler_first == &instruction) {
                    depth = clause.flags == kClauseCatch ? 1 : 0;
                }
            }
            const auto [pops, pushes] = effect(instruction);
            EXPECT_GE(depth, pops)
                << OpcodeTable[static_cast<std::size_t>(instruction.opcode)].name;
            const bool leaves =
                instruction.opcode == Opcode::kLeaveS || instruction.opcode == Opcode::kLeave;
            depth = leaves ? 0 : depth + pushes - pops;
            deepest = std::max(deepest, depth);
        }
        EXPECT_EQ(depth, 0);
        return deepest;
    }

private:
    struct Effect {
        int pops;
        int pushes;
    };

    Effect effect(const Instruction& instruction) {
        switch (instruction.opcode) {
        case Opcode::kNop:
        case Opcode::kBrS:
        case Opcode::kBr:
        case Opcode::kLeaveS:
        case Opcode::kLeave:
        case Opcode::kEndfinally:
            return {0, 0};
        case Opcode::kLdnull:
        case Opcode::kLdstr:
        case Opcode::kLdcI4:
        case Opcode::kLdcI4S:
        case Opcode::kLdcI40:
        case Opcode::kLdcI41:
        case Opcode::kLdarg0:
        case Opcode::kLdargS:
        case Opcode::kLdlocS:
            return {0, 1};
        case Opcode::kPop:
        case Opcode::kStlocS:
        case Opcode::kStargS:
        case Opcode::kBrtrueS:
        case Opcode::kBrtrue:
        case Opcode::kThrow:
            return {1, 0};
        case Opcode::kRet:
            return {returns_value_ ? 1 : 0, 0};
        case Opcode::kBneUnS:
        case Opcode::kBneUn:
            return {2, 0};
        case Opcode::kNewarr:
        case Opcode::kLdlen:
        case Opcode::kConvI4:
        case Opcode::kLdobj:
        case Opcode::kBox:
        case Opcode::kUnboxAny:
        case Opcode::kCastclass:
            return {1, 1};
        case Opcode::kAdd:
        case Opcode::kCeq:
        case Opcode::kClt:
        case Opcode::kLdelemI4:
        case Opcode::kLdelemRef:
            return {2, 1};
        case Opcode::kStelemRef:
            return {3, 0};
        case Opcode::kCall:
        case Opcode::kCallvirt:
        case Opcode::kNewobj:
            return call(instruction);
        default:
            ADD_FAILURE() << OpcodeTable[static_cast<std::size_t>(instruction.opcode)].name;
            return {0, 0};
        }
    }

    Effect call(const Instruction& instruction) {
        PCCOR_SIGNATURE signature = nullptr;
        ULONG size = 0;
        EXPECT_EQ(metadata_.GetMemberRefProps(static_cast<mdMemberRef>(instruction.immediate),
                                              nullptr, nullptr, 0, nullptr, &signature, &size),
                  S_OK);
        const bool creates = instruction.opcode == Opcode::kNewobj;
        const bool takes_receiver = !creates && (signature[0] & 0x20) != 0;
        return {signature[1] + (takes_receiver ? 1 : 0), creates || signature[2] != 0x01 ? 1 : 0};
    }

    IMetaDataImport& metadata_;
    bool returns_value_;
};

TEST_F(MethodInstrumenterTest, TakesAsMuchStackAsItSays) {
    const Bytes point_type = join({{0x11}, coded(point)});
    struct Row {
        Bytes signature;
        Bytes code;
        bool returns_value;
    };
    for (const auto& [signature, code, returns_value] :
         {Row{kVoid, {0x2A}, false},
          // instance int32 Place(int32, ref int32, ref string, Customer, object)
          Row{join({{0x20, 5, 0x08, 0x08, 0x10, 0x08, 0x10, 0x0E, 0x12}, coded(customer), {0x1C}}),
              {0x16, 0x2A},
              true},
          // Point Place(Point)
          Row{join({{0x00, 1}, point_type, point_type}), {0x02, 0x2A}, true}}) {
        const mdMethodDef method = add(L"Place", signature, tiny(code));
        instrument(method);
        MethodBody body;
        ASSERT_EQ(read_body(module->bodies[method], body), BodyResult::kOk);
        ASSERT_EQ(body.clauses.size(), 5U);
        EXPECT_EQ(StackWalk(module->import(), returns_value).deepest(body),
                  static_cast<int>(kInjectedStack));
    }
}

struct RefusedTypeRow {
    const char* name;
    Bytes type;
    const wchar_t* reason;
};

class RefusedType : public MethodInstrumenterTest,
                    public ::testing::WithParamInterface<RefusedTypeRow> {};

INSTANTIATE_TEST_SUITE_P(
    Types, RefusedType,
    ::testing::Values(
        RefusedTypeRow{"Pointer", {0x0F, 0x08}, L"a pointer, which cannot be boxed"},
        RefusedTypeRow{"VoidPointer", {0x0F, 0x01}, L"a pointer, which cannot be boxed"},
        RefusedTypeRow{"FunctionPointer",
                       {0x1B, 0x00, 0x00, 0x01},
                       L"a function pointer, which cannot be boxed"},
        RefusedTypeRow{"TypedReference", {0x16}, L"a TypedReference, which cannot be boxed"},
        RefusedTypeRow{
            "TypeVariable", {0x13, 0x00}, L"of a type that is not fixed, which cannot be boxed"},
        RefusedTypeRow{
            "MethodVariable", {0x1E, 0x00}, L"of a type that is not fixed, which cannot be boxed"},
        RefusedTypeRow{"UnknownElement", {0x17}, L"of an unknown type, which cannot be boxed"}),
    [](const auto& row) { return row.param.name; });

TEST_P(RefusedType, IsNoParameter) {
    expect_left(add(L"Place", join({{0x00, 2, 0x01, 0x1C}, GetParam().type}), tiny({0x2A})),
                std::wstring(L"parameter 2 is ") + GetParam().reason);
}

TEST_P(RefusedType, IsNoParameterByReference) {
    expect_left(add(L"Place", join({{0x00, 1, 0x01, 0x10}, GetParam().type}), tiny({0x2A})),
                std::wstring(L"parameter 1 is ") + GetParam().reason);
}

TEST_P(RefusedType, IsNoResult) {
    expect_left(add(L"Place", join({{0x00, 0}, GetParam().type}), tiny({0x14, 0x2A})),
                std::wstring(L"its result is ") + GetParam().reason);
}

TEST_F(MethodInstrumenterTest, LeavesAMethodThatReturnsAReference) {
    expect_left(add(L"Place", {0x00, 0, 0x10, 0x08}, tiny({0x14, 0x2A})),
                L"its result is returned by reference");
}

TEST_F(MethodInstrumenterTest, LeavesMethodsWithByRefLikeTypes) {
    // The mark stands in the module that defines the type; here both do.
    const auto mark = [](IMetaDataEmit& emit, mdTypeDef marked) {
        mdTypeRef attribute = mdTypeRefNil;
        mdMemberRef constructor = mdMemberRefNil;
        mdCustomAttribute value = mdCustomAttributeNil;
        const Bytes signature = {0x20, 0x00, 0x01};
        ASSERT_EQ(emit.DefineTypeRefByName(TokenFromRid(1, mdtModule),
                                           L"System.Runtime.CompilerServices.IsByRefLikeAttribute",
                                           &attribute),
                  S_OK);
        ASSERT_EQ(emit.DefineMemberRef(attribute, L".ctor", signature.data(), 3, &constructor),
                  S_OK);
        ASSERT_EQ(emit.DefineCustomAttribute(marked, constructor, nullptr, 0, &value), S_OK);
    };
    const mdTypeDef own = module->type_def(L"Shop.Cursor", value_type);
    mark(module->emit(), own);
    const mdTypeRef span = module->type_ref(corlib, L"System.Span`1");
    mdTypeDef other = mdTypeDefNil;
    ASSERT_EQ(
        module->other().DefineTypeDef(L"System.Span`1", tdPublic, mdTokenNil, nullptr, &other),
        S_OK);
    mark(module->other(), other);

    const std::wstring reason = L"of a by-ref-like type, which cannot be boxed";
    expect_left(add(L"A", join({{0x00, 1, 0x01, 0x11}, coded(own)}), tiny({0x2A})),
                L"parameter 1 is " + reason);
    instrumentation_index = 0;
    const std::wstring written = output.text();
    const Bytes span_of_int = join({{0x15, 0x11}, coded(span), {1, 0x08}});
    instrument(add(L"B", join({{0x00, 0}, span_of_int}), tiny({0x2A})));
    EXPECT_EQ(log().back(), L"Left as it is: its result is " + reason);
    instrument(add(L"C", join({{0x00, 1, 0x01, 0x10}, span_of_int}), tiny({0x2A})));
    EXPECT_EQ(log().back(), L"Left as it is: parameter 1 is " + reason);
    for (const bool strict : {false, true}) {
        strict_il = strict;
        instrument(add(own, L"D", {0x20, 0, 0x01}, tiny({0x2A})));
        EXPECT_EQ(log().back(), L"Left as it is: its receiver is " + reason);
    }
    // Once its module is gone it cannot be told.
    remove_loaded_module(ScratchModule::kOtherModule);
    instrument(add(L"E", join({{0x00, 0}, span_of_int}), tiny({0x2A})));
    EXPECT_EQ(log().back(), L"Left as it is: its result is of a value type that no module defines "
                            L"which stays loaded");
    EXPECT_EQ(module->installations, 0);
}

// One that may be taken away can mean the type of another such module, which is not asked: that a
// module which stays has an ordinary type of that name says nothing.
TEST_F(MethodInstrumenterTest, BelievesOnlyTheRuntimesOwnTypesInACollectibleModule) {
    const mdTypeRef box = module->type_ref(module->assembly_ref(L"Boxes"), L"Boxes.Box");
    mdTypeDef defined = mdTypeDefNil;
    ASSERT_EQ(module->other().DefineTypeDef(L"Boxes.Box", tdPublic, mdTokenNil, nullptr, &defined),
              S_OK);
    const Bytes signature = join({{0x00, 1, 0x01, 0x11}, coded(box)});
    instrument(add(L"A", signature, tiny({0x2A})));
    EXPECT_EQ(module->installations, 1);

    remove_loaded_module(ScratchModule::kModule);
    instrument(add(L"B", signature, tiny({0x2A})));
    EXPECT_EQ(log().back(), L"Left as it is: parameter 1 is of a value type that no module defines "
                            L"which stays loaded");
    EXPECT_EQ(module->installations, 1);
    ASSERT_EQ(
        module->other().DefineTypeDef(L"System.Object", tdPublic, mdTokenNil, nullptr, &defined),
        S_OK);
    instrument(add(L"C", signature, tiny({0x2A})));
    EXPECT_EQ(module->installations, 2);
}

// Damaged metadata: the search for the name of such a type would have no end.
TEST_F(MethodInstrumenterTest, LeavesATypeThatIsNestedInItself) {
    const mdTypeRef before = module->type_ref(corlib, L"Shop.Last");
    const mdTypeRef own = module->type_ref(before + 1, L"Endless");
    ASSERT_EQ(own, before + 1);
    instrument(add(L"A", join({{0x00, 1, 0x01, 0x11}, coded(own)}), tiny({0x2A})));
    EXPECT_EQ(log().back(), L"Left as it is: parameter 1 is of a value type that no module defines "
                            L"which stays loaded");
    EXPECT_EQ(module->installations, 0);
}

TEST_F(MethodInstrumenterTest, BoxesAValueTypeThatATypeSpecNames) {
    const mdTypeDef own = module->type_def(L"Shop.Pair`1", value_type);
    const auto spec_of = [&](const Bytes& blob) {
        mdTypeSpec spec = mdTypeSpecNil;
        EXPECT_EQ(module->emit().GetTokenFromTypeSpec(blob.data(), static_cast<ULONG>(blob.size()),
                                                      &spec),
                  S_OK);
        return spec;
    };
    const mdTypeSpec pair = spec_of(join({{0x15, 0x11}, coded(own), {1, 0x08}}));
    const mdMethodDef method = add(L"A", join({{0x00, 1, 0x01, 0x11}, coded(pair)}), tiny({0x2A}));
    instrument(method);
    EXPECT_EQ(module->installations, 1);
    const Bytes box = {0x8C, static_cast<std::uint8_t>(pair), 0, 0, 0x1B};
    EXPECT_FALSE(std::ranges::search(module->bodies[method], box).empty());

    const mdTypeSpec pointer = spec_of({0x0F, 0x08});
    instrument(add(L"B", join({{0x00, 1, 0x01, 0x11}, coded(pointer)}), tiny({0x2A})));
    EXPECT_EQ(log().back(), L"Left as it is: parameter 1 is of a value type that no module defines "
                            L"which stays loaded");
}

// They might be unloaded meanwhile, and their ids then stand for nothing.
TEST_F(MethodInstrumenterTest, HoldsTheModulesThatItLooksAt) {
    std::atomic<bool> may_go = false;
    std::jthread unloading;
    module->on_other_opened = [&] {
        unloading = std::jthread([&] {
            remove_loaded_module(ScratchModule::kOtherModule);
            may_go = true;
        });
        Sleep(100);
        EXPECT_FALSE(may_go);
    };
    instrument(add(L"Place", join({{0x00, 1, 0x01, 0x11}, coded(guid)}), tiny({0x2A})));
    EXPECT_EQ(module->other_opened, 1);
    EXPECT_EQ(module->installations, 1);
    unloading.join();
    EXPECT_TRUE(may_go);
}

// It is compiled plain, and may be running when it is compiled again.
TEST_F(MethodInstrumenterTest, LeavesAMethodForGoodWhenMemoryRunsOut) {
    const mdMethodDef method =
        add(L"Place", join({{0x00, 1, 0x01, 0x11}, coded(guid)}), tiny({0x2A}));
    module->on_other_opened = [] { throw std::bad_alloc(); };
    EXPECT_THROW(instrument(method), std::bad_alloc);
    module->on_other_opened = [] {};
    EXPECT_EQ(compile(method), S_OK);
    EXPECT_EQ(module->installations, 0);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(MethodInstrumenterTest, FindsNestedValueTypes) {
    const mdTypeRef outer = module->type_ref(corlib, L"Store.Shelf");
    const mdTypeRef inner = module->type_ref(outer, L"Place");
    mdTypeDef outer_def = mdTypeDefNil;
    mdTypeDef inner_def = mdTypeDefNil;
    ASSERT_EQ(
        module->other().DefineTypeDef(L"Store.Shelf", tdPublic, mdTokenNil, nullptr, &outer_def),
        S_OK);
    const mdMethodDef method =
        add(L"Place", join({{0x00, 1, 0x01, 0x11}, coded(inner)}), tiny({0x2A}));
    expect_left(method,
                L"parameter 1 is of a value type that no module defines which stays loaded");
    ASSERT_EQ(module->other().DefineNestedType(L"Place", tdNestedPublic, mdTokenNil, nullptr,
                                               outer_def, &inner_def),
              S_OK);
    instrument(method);
    EXPECT_EQ(module->installations, 1);
}

// Types are compared with all the types around them.
TEST_F(MethodInstrumenterTest, TakesANestedTypeNamedAsAByRefLikeOneForWhatItIs) {
    const wchar_t* const oldest = L"System.ArgIterator";
    for (const auto& [outer_name, inner_name] :
         {std::pair(L"Store.Shelf", oldest), std::pair(oldest, L"Place")}) {
        const mdTypeRef outer = module->type_ref(corlib, outer_name);
        const mdTypeRef inner = module->type_ref(outer, inner_name);
        mdTypeDef outer_def = mdTypeDefNil;
        mdTypeDef inner_def = mdTypeDefNil;
        ASSERT_EQ(
            module->other().DefineTypeDef(outer_name, tdPublic, mdTokenNil, nullptr, &outer_def),
            S_OK);
        ASSERT_EQ(module->other().DefineNestedType(inner_name, tdNestedPublic, mdTokenNil, nullptr,
                                                   outer_def, &inner_def),
                  S_OK);
        module->installations = 0;
        instrument(add(L"Place", join({{0x00, 1, 0x01, 0x11}, coded(inner)}), tiny({0x2A})));
        EXPECT_EQ(module->installations, 1);
    }
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(MethodInstrumenterTest, FindsAValueTypeWithALongName) {
    const std::wstring name = L"Store." + std::wstring(994, L'n');
    const mdTypeRef type_ref = module->type_ref(corlib, name);
    mdTypeDef defined = mdTypeDefNil;
    ASSERT_EQ(module->other().DefineTypeDef(name.c_str(), tdPublic, mdTokenNil, nullptr, &defined),
              S_OK);
    instrument(add(L"Place", join({{0x00, 1, 0x01, 0x11}, coded(type_ref)}), tiny({0x2A})));
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_EQ(module->installations, 1);
}

TEST_F(MethodInstrumenterTest, PassesOverAModuleWithoutMetadata) {
    module->other_has_metadata = false;
    expect_left(add(L"Place", join({{0x00, 1, 0x01, 0x11}, coded(guid)}), tiny({0x2A})),
                L"parameter 1 is of a value type that no module defines which stays loaded");
    EXPECT_EQ(module->other_opened, 1);
}

TEST_F(MethodInstrumenterTest, TakesAnEnumerationForAValueType) {
    const mdTypeDef colour =
        module->type_def(L"Shop.Colour", module->type_ref(corlib, L"System.Enum"));
    expect_left(add(colour, L"Mix", {0x20, 0, 0x01}, tiny({0x2A})),
                L"it is an instance method of a value type, whose receiver is no object; "
                L"CORVANE_STRICT_IL=1 boxes it");
    strict_il = true;
    const mdMethodDef method = add(colour, L"Fade", {0x20, 0, 0x01}, tiny({0x2A}));
    instrument(method);
    ASSERT_EQ(module->installations, 1);
    const Bytes load_and_box = {0x71, static_cast<std::uint8_t>(colour), 0, 0, 0x02,
                                0x8C, static_cast<std::uint8_t>(colour), 0, 0, 0x02};
    EXPECT_FALSE(std::ranges::search(module->bodies[method], load_and_box).empty());
}

// As the runtime's own library does.
TEST_F(MethodInstrumenterTest, KnowsValueTypesOfAModuleThatDefinesTheirBases) {
    const mdTypeDef object = module->type_def(L"System.Object", mdTokenNil);
    const mdTypeDef base = module->type_def(L"System.ValueType", object);
    const mdTypeDef enumeration = module->type_def(L"System.Enum", base);
    const Bytes instance = {0x20, 0, 0x01};
    // Both bases are classes.
    instrument(add(base, L"A", instance, tiny({0x2A})));
    instrument(add(enumeration, L"B", instance, tiny({0x2A})));
    EXPECT_EQ(module->installations, 2);
    EXPECT_THAT(log(), IsEmpty());
    for (const mdTypeDef own : {module->type_def(L"System.Guid2", base),
                                module->type_def(L"System.DayOfWeek", enumeration)}) {
        instrument(add(own, L"C", instance, tiny({0x2A})));
    }
    EXPECT_EQ(module->installations, 2);
    const std::wstring left = L"Left as it is: it is an instance method of a value type, whose "
                              L"receiver is no object; CORVANE_STRICT_IL=1 boxes it";
    EXPECT_THAT(log(), ElementsAre(left, left));
}

TEST_F(MethodInstrumenterTest, LeavesTheReceiverOfAValueTypeInTheDefaultForm) {
    expect_left(add(point, L"Move", {0x20, 0, 0x01}, tiny({0x2A})),
                L"it is an instance method of a value type, whose receiver is no object; "
                L"CORVANE_STRICT_IL=1 boxes it");
    instrument(add(point, L"Make", kVoid, tiny({0x2A})));
    EXPECT_EQ(module->installations, 1); // a static one has none
}

TEST_F(MethodInstrumenterTest, LeavesAPrimitiveThatTheModuleDoesNotNameInTheDefaultForm) {
    module = nullptr;
    ScratchModuleTest::SetUp();
    fill_type_refs();
    expect_left(add(L"Place", {0x00, 2, 0x01, 0x1C, 0x0A}, tiny({0x2A})),
                L"its module does not name System.Int64, as which parameter 2 is boxed; "
                L"CORVANE_STRICT_IL=1 lets it");
    // A definition serves as well: the runtime's own library has no references to its own types.
    module->type_def(L"System.Int64", mdTokenNil);
    instrument(add(L"Cancel", {0x00, 1, 0x01, 0x0A}, tiny({0x2A})));
    EXPECT_EQ(module->installations, 1);
}

TEST_F(MethodInstrumenterTest, LeavesAMethodWhoseBodyCannotBeRead) {
    const mdMethodDef method = module->method_def(type, L"Place", kVoid);
    instrument(method);
    EXPECT_THAT(log(), ElementsAre(std::wstring(L"Left as it is (") +
                                   hresult_text(E_INVALIDARG).c_str() + L")"));
    EXPECT_EQ(instrumentation_index, 0U); // it never got that far
}

// Whatever the metadata refuses while the body is made, nothing is installed.
TEST_F(MethodInstrumenterTest, InstallsNothingAfterAnyFailure) {
    const Bytes pair = join({{0x15, 0x11}, coded(point), {2, 0x0E, 0x08}});
    const mdMethodDef method = add(L"Place", join({{0x00, 1, 0x08}, pair}), tiny({0x16, 0x2A}));
    const Bytes before = module->bodies[method];
    instrument(method);
    ASSERT_EQ(module->installations, 1);
    module->bodies[method] = before;
    instrument(method); // as often as the assemblies are there
    const std::size_t calls = module->metadata_calls.size();
    ASSERT_EQ(module->installations, 2);
    std::set<std::string> failed;
    // 20 calls define the references of a module that has its assemblies.
    for (std::size_t call = 22; call < calls; ++call) {
        module->bodies[method] = before;
        module->results = {{call, E_ACCESSDENIED}};
        instrument(method);
        const std::string& what = module->metadata_calls.at(call);
        failed.insert(what.substr(0, what.find(' ')));
        // Only the search for a boxing type goes on, among the definitions.
        EXPECT_EQ(module->installations, 2) << what;
        EXPECT_EQ(module->bodies[method], before) << what;
    }
    EXPECT_THAT(failed, ElementsAre("DefineUserString", "EnumTypeRefs", "GetModuleMetaData",
                                    "GetTokenFromSig", "GetTokenFromTypeSpec"));
}

TEST_F(MethodInstrumenterTest, OpensTheMetadataOnceForEachJob) {
    // int32 Place(int32), with a local of its own
    mdSignature locals = mdSignatureNil;
    const Bytes blob = {0x07, 0x01, 0x08};
    ASSERT_EQ(module->emit().GetTokenFromSig(blob.data(), 3, &locals), S_OK);
    Bytes body = {0x13, 0x30, 1, 0, 2, 0, 0, 0, 0, 0, 0, 0x11, 0x06, 0x2A};
    body[8] = static_cast<std::uint8_t>(locals);
    instrument(add(L"Place", {0x00, 1, 0x08, 0x08}, body));
    ASSERT_EQ(module->installations, 1);
    std::vector<std::string> opened;
    std::ranges::copy_if(
        module->metadata_calls, std::back_inserter(opened),
        [](const std::string& call) { return call.starts_with("GetModuleMetaData"); });
    // To define references, to look for types, and to rewrite.
    EXPECT_THAT(opened, ElementsAre("GetModuleMetaData flags 1", "GetModuleMetaData flags 0",
                                    "GetModuleMetaData flags 1"));
}

TEST_F(MethodInstrumenterTest, DefinesAllLocalsByOneSignatureInStrictIl) {
    const auto defined = [&](const wchar_t* name) {
        module->metadata_calls.clear();
        module->installations = 0;
        instrument(add(name, {0x00, 1, 0x08, 0x08}, tiny({0x16, 0x2A})));
        EXPECT_EQ(module->installations, 1);
        return std::ranges::count_if(module->metadata_calls, [](const std::string& call) {
            return call.starts_with("GetTokenFromSig");
        });
    };
    EXPECT_GT(defined(L"Place"), 1);
    strict_il = true;
    EXPECT_EQ(defined(L"Other"), 1);
}

// The other module stands for mscorlib. What is opened stays open for the process, so that this can
// be seen once only.
TEST_F(MethodInstrumenterTest, OpensMscorlibOnceItIsKnownAndKeepsIt) {
    IMetaDataEmit& mscorlib = module->other();
    const auto references = [&] {
        mscorlib.AddRef();
        return mscorlib.Release();
    };
    const ULONG before = references();
    instrument(add(L"Place", kVoid, tiny({0x2A})));
    EXPECT_EQ(module->other_opened, 0);
    EXPECT_EQ(references(), before);
    mscorlibModuleId = ScratchModule::kOtherModule;
    instrument(add(L"Cancel", kVoid, tiny({0x2A})));
    instrument(add(L"Close", kVoid, tiny({0x2A})));
    mscorlibModuleId = 0;
    EXPECT_EQ(module->other_opened, 1);
    EXPECT_EQ(references(), before + 1);
    EXPECT_EQ(module->installations, 3);
}

} // namespace
} // namespace corvane::testing
