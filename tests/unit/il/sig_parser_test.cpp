#include "il/sig_parser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iomanip>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace corvane {
namespace {

// A vector made from a list holds exactly these bytes on the heap, so that AddressSanitizer sees an
// overread.
using Bytes = std::vector<std::uint8_t>;

bool parse(SigParser& parser, const Bytes& blob) {
    return parser.Parse(blob.data(), static_cast<std::uint32_t>(blob.size()));
}

// Writes every hook as one word with its arguments in hexadecimal.
class Recorder : public SigParser {
public:
    std::string text;
    std::set<std::string> hooks;

protected:
    void on_begin_method(std::uint8_t convention) override { note("method(", convention); }
    void on_end_method() override { note(")method"); }
    void on_param_count(std::uint32_t count) override { note("params", count); }
    void on_begin_return_type() override { note("return("); }
    void on_end_return_type() override { note(")return"); }
    void on_begin_param() override { note("param("); }
    void on_end_param() override { note(")param"); }
    void on_sentinel() override { note("sentinel"); }
    void on_generic_param_count(std::uint32_t count) override { note("generic_params", count); }
    void on_begin_field(std::uint8_t kind) override { note("field(", kind); }
    void on_end_field() override { note(")field"); }
    void on_begin_locals(std::uint8_t kind) override { note("locals(", kind); }
    void on_end_locals() override { note(")locals"); }
    void on_local_count(std::uint32_t count) override { note("count", count); }
    void on_begin_local() override { note("local("); }
    void on_end_local() override { note(")local"); }
    void on_constraint(std::uint8_t type) override { note("constraint", type); }
    void on_begin_property(std::uint8_t kind) override { note("property(", kind); }
    void on_end_property() override { note(")property"); }
    void on_begin_array_shape() override { note("shape("); }
    void on_end_array_shape() override { note(")shape"); }
    void on_rank(std::uint32_t rank) override { note("rank", rank); }
    void on_size_count(std::uint32_t count) override { note("sizes", count); }
    void on_size(std::uint32_t size) override { note("size", size); }
    void on_lower_bound_count(std::uint32_t count) override { note("lower_bounds", count); }
    void on_lower_bound(std::uint32_t bound) override { note("lower_bound", bound); }
    void on_begin_type() override { note("type("); }
    void on_end_type() override { note(")type"); }
    void on_typed_by_ref() override { note("typed_by_ref"); }
    void on_by_ref() override { note("by_ref"); }
    void on_void() override { note("void"); }
    void on_custom_modifier(std::uint8_t type, std::uint32_t table, std::uint32_t row) override {
        note("modifier", type, table, row);
    }
    void on_simple_type(std::uint8_t type) override { note("simple", type); }
    void on_type_def_or_ref(std::uint32_t table, std::uint32_t row) override {
        note("token", table, row);
    }
    void on_generic_inst(std::uint8_t kind, std::uint32_t table, std::uint32_t row,
                         std::uint32_t argument_count) override {
        note("inst", kind, table, row, argument_count);
    }
    void on_type_variable(std::uint32_t number) override { note("var", number); }
    void on_method_variable(std::uint32_t number) override { note("mvar", number); }
    void on_value_type(std::uint8_t type) override { note("value_type", type); }
    void on_class(std::uint8_t type) override { note("class", type); }
    void on_pointer(std::uint8_t type) override { note("pointer", type); }
    void on_function_pointer(std::uint8_t type) override { note("function_pointer", type); }
    void on_array(std::uint8_t type) override { note("array", type); }
    void on_sz_array(std::uint8_t type) override { note("sz_array", type); }

public:
    // Where the table of virtual functions has each hook, in the order in which hooks are numbered.
    // A pointer to a virtual member begins with that place (the C++ ABI of both compilers).
    static std::vector<std::ptrdiff_t> places() {
        std::vector<std::ptrdiff_t> places;
        const auto add = [&places](auto... members) {
            const auto place_of = [](auto hook) {
                std::ptrdiff_t place = 0;
                std::memcpy(&place, &hook, sizeof place);
                return place;
            };
            (places.push_back(place_of(members)), ...);
        };
        using R = Recorder;
        add(&R::on_begin_method, &R::on_end_method, &R::on_param_count, &R::on_begin_return_type,
            &R::on_end_return_type, &R::on_begin_param, &R::on_end_param, &R::on_sentinel,
            &R::on_generic_param_count, &R::on_begin_field, &R::on_end_field, &R::on_begin_locals,
            &R::on_end_locals, &R::on_local_count, &R::on_begin_local, &R::on_end_local,
            &R::on_constraint, &R::on_begin_property, &R::on_end_property, &R::on_begin_array_shape,
            &R::on_end_array_shape, &R::on_rank, &R::on_size_count, &R::on_size,
            &R::on_lower_bound_count, &R::on_lower_bound, &R::on_begin_type, &R::on_end_type,
            &R::on_typed_by_ref, &R::on_by_ref, &R::on_void, &R::on_custom_modifier,
            &R::on_simple_type, &R::on_type_def_or_ref, &R::on_generic_inst, &R::on_type_variable,
            &R::on_method_variable, &R::on_value_type, &R::on_class, &R::on_pointer,
            &R::on_function_pointer, &R::on_array, &R::on_sz_array);
        return places;
    }

private:
    template <typename... Values>
    void note(const char* hook, Values... values) {
        hooks.insert(hook);
        std::ostringstream line;
        line << std::hex << std::uppercase << (text.empty() ? "" : " ") << hook;
        ((line << ':' << std::uint32_t{values}), ...);
        text += line.str();
    }
};

std::string hooks_of(const Bytes& blob) {
    Recorder recorder;
    const bool parsed = parse(recorder, blob);
    return recorder.text + (parsed ? "" : " failed");
}

// "[byref] [array] [inst KIND@OFFSET+LENGTH] TYPE TABLE:ROW", numbers in hexadecimal.
std::string text_of(const SigTypeInfo& info, const SigParser& parser) {
    std::ostringstream text;
    text << std::hex << std::uppercase;
    text << (info.isByRef != 0 ? "byref " : "") << (info.isArray != 0 ? "array " : "");
    if (info.isGenericInst != 0) {
        text << "inst " << unsigned{info.genericKind} << '@' << info.genericStart - parser.sigStart
             << '+' << info.genericLength << ' ';
    }
    text << info.elementType << ' ' << info.tokenTable << ':' << info.tokenRow;
    return text.str();
}

// "THIS RETURN (PARAMETER, ...)", and the number of bytes left unread when that is not none.
std::string summary_of(const Bytes& blob) {
    SigParser parser;
    const bool parsed = parse(parser, blob);
    std::string text = parser.hasThis != 0 ? "this " : "static ";
    text += text_of(parser.returnType, parser) + " (";
    for (const SigTypeInfo& param : parser.params) {
        text += (&param == parser.params.data() ? "" : ", ") + text_of(param, parser);
    }
    text += ")";
    if (parser.cursor != parser.sigEnd) {
        text += " +" + std::to_string(parser.sigEnd - parser.cursor);
    }
    return text + (parsed ? "" : " failed");
}

// --- the summary

TEST(SigParser, StaticMethodWithoutParameters) {
    EXPECT_EQ(summary_of({0x00, 0x00, 0x01}), "static 1 0:0 ()");
}

TEST(SigParser, InstanceMethodWithAByReferenceParameter) {
    EXPECT_EQ(summary_of({0x20, 0x01, 0x01, 0x10, 0x08}), "this 1 0:0 (byref 8 0:0)");
}

TEST(SigParser, SetsItsPointersAndKeepsTheParsedRange) {
    const Bytes blob{0x20, 0x01, 0x01, 0x08, 0xAA};
    SigParser parser;
    EXPECT_TRUE(parse(parser, blob));
    EXPECT_EQ(parser.sigStart, blob.data());
    EXPECT_EQ(parser.cursor, blob.data() + 4);
    EXPECT_EQ(parser.sigEnd, blob.data() + 5);
}

TEST(SigParser, EveryMethodConventionIsAMethod) {
    for (std::uint8_t convention = 0x00; convention <= 0x05; ++convention) {
        EXPECT_EQ(summary_of({convention, 0x01, 0x01, 0x0E}), "static 1 0:0 (E 0:0)");
        const auto instance = static_cast<std::uint8_t>(convention | 0x20);
        EXPECT_EQ(summary_of({instance, 0x01, 0x01, 0x0E}), "this 1 0:0 (E 0:0)");
        const auto explicit_this = static_cast<std::uint8_t>(convention | 0x40);
        EXPECT_EQ(summary_of({explicit_this, 0x01, 0x01, 0x0E}), "static 1 0:0 (E 0:0)");
    }
}

TEST(SigParser, HasThisIsExactlyOne) {
    for (const std::uint8_t convention : Bytes{0x20, 0x25, 0x30, 0x60, 0xE0}) {
        SigParser parser;
        EXPECT_TRUE(parse(parser, {convention, 0x00, 0x00, 0x01}));
        EXPECT_EQ(parser.hasThis, 1) << unsigned{convention};
    }
}

TEST(SigParser, OtherKindsFail) {
    for (unsigned first = 0; first <= 0xFF; ++first) {
        if ((first & 0x0F) > 0x08) {
            const Bytes blob{static_cast<std::uint8_t>(first), 0x00, 0x01, 0x08, 0x08};
            EXPECT_EQ(hooks_of(blob), " failed") << first;
            SigParser parser;
            EXPECT_FALSE(parse(parser, blob));
            EXPECT_EQ(parser.hasThis, 0);
        }
    }
}

TEST(SigParser, AnEmptyBlobFails) {
    SigParser parser;
    EXPECT_FALSE(parser.Parse(nullptr, 0));
    EXPECT_EQ(parser.cursor, parser.sigEnd);
}

TEST(SigParser, GenericMethodReadsItsGenericParameterCountFirst) {
    EXPECT_EQ(summary_of({0x30, 0x02, 0x01, 0x1E, 0x01, 0x1E, 0x00}), "this 1E 0:0 (1E 0:0)");
    EXPECT_EQ(hooks_of({0x10, 0x02, 0x00, 0x01}),
              "method(:10 generic_params:2 params:0 return( void )return )method");
}

TEST(SigParser, OnlyAMethodHasAThis) {
    EXPECT_EQ(summary_of({0x28, 0x00}), "static 0 0:0 ()");
    EXPECT_EQ(summary_of({0x26, 0x08}), "static 0 0:0 ()");
}

TEST(SigParser, ArraysAreFlaggedAndDescribedByTheirElement) {
    EXPECT_EQ(summary_of({0x00, 0x01, 0x01, 0x1D, 0x08}), "static 1 0:0 (array 8 0:0)");
    EXPECT_EQ(summary_of({0x00, 0x01, 0x01, 0x1D, 0x1D, 0x12, 0x09}),
              "static 1 0:0 (array 12 1:2)");
    EXPECT_EQ(summary_of({0x00, 0x01, 0x01, 0x10, 0x14, 0x0E, 0x02, 0x00, 0x00}),
              "static 1 0:0 (byref array E 0:0)");
}

TEST(SigParser, AByReferenceStringIsAStringByReference) {
    EXPECT_EQ(summary_of({0x00, 0x01, 0x01, 0x10, 0x0E}), "static 1 0:0 (byref E 0:0)");
}

TEST(SigParser, TokensGiveTableAndRow) {
    EXPECT_EQ(
        summary_of({0x00, 0x03, 0x12, 0x04, 0x11, 0x05, 0x12, 0x06, 0x11, 0xC0, 0x01, 0x00, 0x03}),
        "static 12 0:1 (11 1:1, 12 2:1, 11 3:4000)");
}

TEST(SigParser, AnInstantiationIsLocatedAndItsTokenNotStored) {
    EXPECT_EQ(summary_of({0x20, 0x01, 0x01, 0x15, 0x12, 0x81, 0x05, 0x01, 0x0E}),
              "this 1 0:0 (inst 12@3+6 E 0:0)");
    EXPECT_EQ(summary_of({0x00, 0x01, 0x01, 0x15, 0x11, 0x05, 0x01, 0x11, 0x0A}),
              "static 1 0:0 (inst 11@3+6 11 2:2)");
    EXPECT_EQ(summary_of({0x00, 0x00, 0x15, 0x12, 0x05, 0x00}), "static inst 12@2+4 15 0:0 ()");
}

TEST(SigParser, NestedInstantiationsAreLocatedAsAWhole) {
    // Dictionary<List<int>, string>, then KeyValuePair<string, List<int>>.
    EXPECT_EQ(summary_of({0x00, 0x02, 0x01,                                           //
                          0x15, 0x12, 0x05, 0x02, 0x15, 0x12, 0x09, 0x01, 0x08, 0x0E, //
                          0x15, 0x11, 0x05, 0x02, 0x0E, 0x15, 0x12, 0x09, 0x01, 0x08}),
              "static 1 0:0 (inst 12@3+A E 0:0, inst 11@D+A 8 0:0)");
}

TEST(SigParser, AFunctionPointerAmongTheArgumentsLeavesTheInstantiationWhole) {
    // List<delegate*<int, void>>: the inner parameter starts without flags.
    SigParser parser;
    EXPECT_TRUE(parse(parser, {0x00, 0x01, 0x01, //
                               0x15, 0x12, 0x05, 0x01, 0x1B, 0x00, 0x01, 0x01, 0x08}));
    ASSERT_EQ(parser.params.size(), 2u); // the inner one first
    EXPECT_EQ(parser.params[1].isGenericInst, 1);
    EXPECT_EQ(parser.params[1].genericKind, 0x12);
    EXPECT_EQ(parser.params[1].genericStart, parser.sigStart + 3);
    EXPECT_EQ(parser.params[1].genericLength, 9u);
}

TEST(SigParser, AnArrayOfInstantiationsIsBoth) {
    EXPECT_EQ(summary_of({0x00, 0x01, 0x01, 0x1D, 0x15, 0x11, 0x05, 0x01, 0x08}),
              "static 1 0:0 (array inst 11@4+5 8 0:0)");
}

TEST(SigParser, AParameterStartsWithoutFlagsButKeepsTheLastToken) {
    EXPECT_EQ(summary_of({0x00, 0x03, 0x01,                               //
                          0x10, 0x1D, 0x15, 0x12, 0x05, 0x01, 0x12, 0x09, //
                          0x08, 0x11, 0x0D}),
              "static 1 0:0 (byref array inst 12@5+6 12 1:2, 8 1:2, 11 1:3)");
}

TEST(SigParser, AParameterStartsWithoutTheInstantiationBeforeIt) {
    SigParser parser;
    EXPECT_TRUE(parse(parser, {0x00, 0x02, 0x01, 0x10, 0x15, 0x11, 0x05, 0x01, 0x08, 0x16}));
    ASSERT_EQ(parser.params.size(), 2U);
    SigTypeInfo typed_by_ref;
    typed_by_ref.elementType = 0x16;
    EXPECT_EQ(parser.params[1], typed_by_ref);
}

TEST(SigParser, TheReturnTypeLeavesItsTokenToTheFirstParameter) {
    EXPECT_EQ(summary_of({0x00, 0x01, 0x1D, 0x12, 0x09, 0x08}), "static array 12 1:2 (8 1:2)");
}

TEST(SigParser, TypedReferences) {
    EXPECT_EQ(summary_of({0x00, 0x02, 0x16, 0x16, 0x08}), "static 16 0:0 (16 0:0, 8 0:0)");
}

TEST(SigParser, AByReferenceReturnIsReportedOnlyToItsHook) {
    EXPECT_EQ(summary_of({0x00, 0x00, 0x10, 0x08}), "static 8 0:0 ()");
    EXPECT_EQ(hooks_of({0x00, 0x00, 0x10, 0x08}),
              "method(:0 params:0 return( by_ref type( simple:8 )type )return )method");
}

TEST(SigParser, APointerIsDescribedByWhatItPointsTo) {
    EXPECT_EQ(summary_of({0x00, 0x02, 0x0F, 0x01, 0x0F, 0x08, 0x0F, 0x0F, 0x01}),
              "static F 0:0 (8 0:0, F 0:0)");
}

TEST(SigParser, AFunctionPointerAddsItsSignatureToTheSummary) {
    // void M(delegate*<string, int, bool>): the inner parameters come first, the inner return type
    // stays.
    EXPECT_EQ(summary_of({0x00, 0x01, 0x01, 0x1B, 0x00, 0x02, 0x02, 0x0E, 0x08}),
              "static 2 0:0 (E 0:0, 8 0:0, 8 0:0)");
}

TEST(SigParser, AFunctionPointersParametersClearTheFlagsAroundIt) {
    EXPECT_EQ(summary_of({0x00, 0x01, 0x01, 0x10, 0x1D, 0x1B, 0x20, 0x01, 0x01, 0x0E}),
              "static byref array 1 0:0 (E 0:0, E 0:0)");
    EXPECT_EQ(summary_of({0x00, 0x01, 0x01, 0x10, 0x1D, 0x1B, 0x20, 0x00, 0x01}),
              "static byref array 1 0:0 (byref array 1 0:0)");
}

TEST(SigParser, AFunctionPointersConventionIsNotExamined) {
    // 9, unmanaged, is what C# writes for delegate* unmanaged; only the outermost byte selects a
    // kind.
    EXPECT_EQ(summary_of({0x00, 0x01, 0x01, 0x1B, 0x09, 0x00, 0x01}), "static 1 0:0 (1 0:0)");
    EXPECT_EQ(summary_of({0x00, 0x00, 0x1B, 0x30, 0x01, 0x00, 0x1E, 0x00}), "static 1E 0:0 ()");
}

TEST(SigParser, FieldsLocalsAndPropertiesHaveNoSummary) {
    EXPECT_EQ(summary_of({0x06, 0x1D, 0x08}), "static 0 0:0 ()");
    EXPECT_EQ(summary_of({0x07, 0x02, 0x08, 0x0E}), "static 0 0:0 ()");
    EXPECT_EQ(summary_of({0x28, 0x01, 0x08, 0x0E}), "static 0 0:0 () +1");
}

// --- the hooks

TEST(SigParser, DeclaresItsHooksInTheirOrder) {
    const auto places = Recorder::places();
    ASSERT_EQ(places.size(), 43U);
    for (std::size_t hook = 1; hook < places.size(); ++hook) {
        EXPECT_EQ(places[hook] - places[hook - 1], std::ptrdiff_t{sizeof(void*)}) << hook;
    }
}

TEST(SigParser, ReportsAMethod) {
    EXPECT_EQ(
        hooks_of({0x35, 0x01, 0x02, 0x20, 0x05, 0x12, 0x09, 0x10, 0x08, 0x41, 0x1F, 0x06, 0x16}),
        "method(:35 generic_params:1 params:2 "
        "return( modifier:20:1:1 type( class:12 token:1:2 )type )return "
        "param( by_ref type( simple:8 )type )param "
        "sentinel param( modifier:1F:2:1 typed_by_ref )param )method");
}

TEST(SigParser, ReportsAField) {
    EXPECT_EQ(hooks_of({0x06, 0x1F, 0x05, 0x20, 0x09, 0x08}),
              "field(:6 modifier:1F:1:1 modifier:20:1:2 type( simple:8 )type )field");
}

TEST(SigParser, ReportsLocals) {
    EXPECT_EQ(hooks_of({0x07, 0x05, 0x08, 0x16, 0x45, 0x10, 0x05, 0x20, 0x05, 0x45, 0x1F, 0x09,
                        0x45, 0x0E, 0x1F, 0x09, 0x16}),
              "locals(:7 count:5 local( type( simple:8 )type )local local( typed_by_ref )local "
              "local( constraint:45 by_ref type( simple:5 )type )local "
              "local( modifier:20:1:1 constraint:45 modifier:1F:1:2 constraint:45 type( simple:E "
              ")type )local "
              // Only at the very start is a typed reference seen as one; behind a modifier it is a
              // bare type.
              "local( modifier:1F:1:2 type( )type )local )locals");
    EXPECT_EQ(hooks_of({0x07, 0x00}), "locals(:7 count:0 )locals");
}

TEST(SigParser, ReportsAPropertyWithItsTypeAsTheFirstParameter) {
    // int this[string, bool]: two are counted, the type and the string are read, the bool is not.
    EXPECT_EQ(hooks_of({0x28, 0x02, 0x20, 0x05, 0x08, 0x0E, 0x02}),
              "property(:28 params:2 modifier:20:1:1 param( type( simple:8 )type )param "
              "param( type( simple:E )type )param )property");
    EXPECT_EQ(summary_of({0x28, 0x02, 0x20, 0x05, 0x08, 0x0E, 0x02}), "static 0 0:0 () +1");
    // A plain property counts none, and its type stays unread.
    EXPECT_EQ(hooks_of({0x08, 0x00, 0x08}), "property(:8 params:0 )property");
    EXPECT_EQ(summary_of({0x08, 0x00, 0x08}), "static 0 0:0 () +1");
}

TEST(SigParser, ReportsArraysAndTheirShape) {
    EXPECT_EQ(hooks_of({0x06, 0x14, 0x08, 0x03, 0x02, 0x04, 0x80, 0x80, 0x01, 0x02}),
              "field(:6 type( array:14 type( simple:8 )type shape( rank:3 sizes:2 size:4 size:80 "
              "lower_bounds:1 lower_bound:2 )shape )type )field");
    EXPECT_EQ(hooks_of({0x06, 0x1D, 0x20, 0x05, 0x0E}),
              "field(:6 type( sz_array:1D modifier:20:1:1 type( simple:E )type )type )field");
}

TEST(SigParser, ReportsPointers) {
    EXPECT_EQ(hooks_of({0x06, 0x0F, 0x1F, 0x05, 0x01}),
              "field(:6 type( pointer:F modifier:1F:1:1 void )type )field");
    EXPECT_EQ(hooks_of({0x06, 0x0F, 0x0F, 0x08}),
              "field(:6 type( pointer:F type( pointer:F type( simple:8 )type )type )type )field");
    EXPECT_EQ(hooks_of({0x06, 0x1B, 0x02, 0x01, 0x01, 0x08}),
              "field(:6 type( function_pointer:1B method(:2 params:1 return( void )return "
              "param( type( simple:8 )type )param )method )type )field");
}

TEST(SigParser, ReportsTokensVariablesAndInstantiations) {
    EXPECT_EQ(hooks_of({0x06, 0x11, 0x0B}), "field(:6 type( value_type:11 token:3:2 )type )field");
    EXPECT_EQ(hooks_of({0x06, 0x13, 0x81, 0x00}), "field(:6 type( var:100 )type )field");
    EXPECT_EQ(hooks_of({0x06, 0x1E, 0x02}), "field(:6 type( mvar:2 )type )field");
    EXPECT_EQ(hooks_of({0x06, 0x15, 0x11, 0x0A, 0x02, 0x13, 0x00, 0x1C}),
              "field(:6 type( inst:11:2:2:2 type( var:0 )type type( simple:1C )type )type )field");
}

TEST(SigParser, EveryHookIsReachable) {
    Recorder method;
    EXPECT_TRUE(parse(method, {0x35, 0x01, 0x03, 0x01, 0x16, 0x41, 0x1F, 0x05, 0x10, 0x1D, 0x0F,
                               0x08, 0x15, 0x12, 0x09, 0x03, 0x13, 0x00, 0x1E, 0x00, 0x1B, 0x00,
                               0x01, 0x11, 0x05, 0x14, 0x12, 0x05, 0x01, 0x01, 0x03, 0x01, 0x00}));
    Recorder field;
    EXPECT_TRUE(parse(field, {0x06, 0x08}));
    Recorder locals;
    EXPECT_TRUE(parse(locals, {0x07, 0x01, 0x45, 0x08}));
    Recorder property;
    EXPECT_TRUE(parse(property, {0x08, 0x00}));
    std::set<std::string> all;
    for (const Recorder* recorder : {&method, &field, &locals, &property}) {
        all.insert(recorder->hooks.begin(), recorder->hooks.end());
    }
    EXPECT_EQ(all.size(), 43U);
}

TEST(SigParser, EveryByteInThePlaceOfATypeIsHandledAsItsRowSays) {
    const std::set<unsigned> simple{0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09,
                                    0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x18, 0x19, 0x1C};
    const std::set<unsigned> continued{0x0F, 0x11, 0x12, 0x13, 0x14, 0x15, 0x1B, 0x1D, 0x1E};
    for (unsigned type = 0; type <= 0xFF; ++type) {
        // The place of a type argument: no modifier, by-reference or sentinel is looked for there.
        const Bytes blob{0x06, 0x15, 0x12, 0x05, 0x01, static_cast<std::uint8_t>(type)};
        Recorder recorder;
        const bool parsed = parse(recorder, blob);
        EXPECT_EQ(recorder.current.elementType, type);
        if (continued.contains(type)) {
            EXPECT_FALSE(parsed) << type;
            continue;
        }
        std::ostringstream expected;
        expected << "field(:6 type( inst:12:1:1:1 type( " << std::hex << std::uppercase;
        if (simple.contains(type)) {
            expected << "simple:" << type << ' ';
        }
        expected << ")type )type )field";
        EXPECT_TRUE(parsed) << type;
        EXPECT_EQ(recorder.text, expected.str());
        EXPECT_EQ(recorder.cursor, recorder.sigEnd);
    }
}

// --- malformed blobs

TEST(SigParser, ASecondSentinelFails) {
    EXPECT_EQ(summary_of({0x05, 0x02, 0x01, 0x41, 0x08, 0x41, 0x0E}),
              "static 1 0:0 (8 0:0) +2 failed");
    EXPECT_EQ(summary_of({0x05, 0x02, 0x01, 0x08, 0x41, 0x0E}), "static 1 0:0 (8 0:0, E 0:0)");
}

TEST(SigParser, AFunctionPointerHasASentinelOfItsOwn) {
    EXPECT_EQ(summary_of({0x05, 0x02, 0x01, 0x41, 0x1B, 0x05, 0x01, 0x01, 0x41, 0x08, 0x0E}),
              "static 1 0:0 (8 0:0, 8 0:0, E 0:0)");
}

TEST(SigParser, ABadCountFails) {
    EXPECT_EQ(summary_of({0x00, 0xFF, 0x01}), "static 0 0:0 () +2 failed");
    EXPECT_EQ(summary_of({0x00, 0xE0, 0x00, 0x00, 0x00, 0x01}), "static 0 0:0 () +5 failed");
    EXPECT_EQ(summary_of({0x10, 0xFF, 0x00, 0x01}), "static 0 0:0 () +3 failed");
    EXPECT_EQ(summary_of({0x00, 0x80}), "static 0 0:0 () +1 failed");
    EXPECT_EQ(summary_of({0x00, 0xC0, 0x00, 0x00}), "static 0 0:0 () +3 failed");
    EXPECT_EQ(summary_of({0x07, 0xFF}), "static 0 0:0 () +1 failed");
    EXPECT_EQ(summary_of({0x08, 0xFF}), "static 0 0:0 () +1 failed");
}

TEST(SigParser, AnInstantiationOfNeitherClassNorValueTypeFails) {
    EXPECT_EQ(summary_of({0x00, 0x01, 0x01, 0x15, 0x1C, 0x05, 0x01, 0x08}),
              "static 1 0:0 () +3 failed");
    const Bytes blob{0x06, 0x15, 0x1C, 0x05, 0x01, 0x08};
    SigParser parser;
    EXPECT_FALSE(parse(parser, blob));
    EXPECT_EQ(parser.current.genericStart, blob.data() + 1);
    EXPECT_EQ(parser.current.isGenericInst, 0);
}

TEST(SigParser, ATruncatedParameterListIsShorter) {
    EXPECT_EQ(summary_of({0x20, 0x03, 0x08, 0x10, 0x0E, 0x1D, 0x02}),
              "this 8 0:0 (byref E 0:0, array 2 0:0) failed");
    EXPECT_EQ(summary_of({0x20, 0x02, 0x08, 0x0E, 0x12}), "this 8 0:0 (E 0:0) failed");
}

TEST(SigParser, EveryTruncationFailsWithinBounds) {
    const std::vector<Bytes> blobs{
        {0x00, 0x00, 0x01},
        {0x20, 0x01, 0x01, 0x10, 0x08},
        {0x35, 0x81, 0x01, 0x02, 0x20, 0x05, 0x12, 0xC0, 0x01, 0x00, 0x03, 0x10, 0x08, 0x41, 0x1F,
         0x06, 0x16},
        {0x00, 0x01, 0x01, 0x1B, 0x00, 0x02, 0x02, 0x0E, 0x08},
        {0x00, 0x01, 0x0F, 0x20, 0x05, 0x01, 0x0F, 0x13, 0x81, 0x00},
        {0x20, 0x01, 0x01, 0x15, 0x12, 0x81, 0x05, 0x02, 0x15, 0x11, 0x09, 0x01, 0x1E, 0x00, 0x0E},
        {0x06, 0x1F, 0x05, 0x20, 0x81, 0x09, 0x08},
        {0x06, 0x14, 0x08, 0x03, 0x02, 0x04, 0x80, 0x80, 0x01, 0x02},
        {0x07, 0x04, 0x08, 0x16, 0x45, 0x10, 0x05, 0x20, 0x05, 0x45, 0x1F, 0x09, 0x1D, 0x0E},
        {0x28, 0x02, 0x20, 0x05, 0x08, 0x11, 0x81, 0x09},
    };
    for (const Bytes& blob : blobs) {
        SigParser whole;
        EXPECT_TRUE(parse(whole, blob));
        EXPECT_EQ(whole.cursor, whole.sigEnd);
        for (std::size_t length = 0; length < blob.size(); ++length) {
            const Bytes part(blob.data(), blob.data() + length);
            SigParser parser;
            EXPECT_FALSE(parse(parser, part)) << testing::PrintToString(part);
            EXPECT_LE(parser.sigStart, parser.cursor);
            EXPECT_LE(parser.cursor, parser.sigEnd);
        }
    }
}

TEST(SigParser, ACountIsNotBelievedUntilItsBytesAreThere) {
    const std::vector<Bytes> blobs{
        {0x00, 0xDF, 0xFF, 0xFF, 0xFF, 0x01, 0x08, 0x08, 0x08, 0x08},
        {0x07, 0xDF, 0xFF, 0xFF, 0xFF, 0x08, 0x08, 0x08, 0x08, 0x08},
        {0x28, 0xDF, 0xFF, 0xFF, 0xFF, 0x08, 0x08, 0x08, 0x08, 0x08},
        {0x06, 0x15, 0x12, 0x05, 0xDF, 0xFF, 0xFF, 0xFF, 0x08, 0x08},
        {0x06, 0x14, 0x08, 0x02, 0xDF, 0xFF, 0xFF, 0xFF, 0x01, 0x01},
        {0x06, 0x14, 0x08, 0x02, 0x00, 0xDF, 0xFF, 0xFF, 0xFF, 0x01},
    };
    for (const Bytes& blob : blobs) {
        SigParser parser;
        EXPECT_FALSE(parse(parser, blob)) << testing::PrintToString(blob);
        EXPECT_EQ(parser.cursor, parser.sigEnd);
        EXPECT_LE(parser.params.capacity(), blob.size());
    }
}

Bytes nested(const Bytes& wrapping, std::size_t times, const Bytes& innermost) {
    Bytes blob{0x06};
    for (std::size_t i = 0; i < times; ++i) {
        blob.insert(blob.end(), wrapping.begin(), wrapping.end());
    }
    blob.insert(blob.end(), innermost.begin(), innermost.end());
    return blob;
}

TEST(SigParser, NestingIsFollowedToItsLimitAndNoFurther) {
    const std::vector<Bytes> wrappings{
        {0x1D},                               // array
        {0x0F},                               // pointer
        {0x15, 0x12, 0x05, 0x01},             // instantiation
        {0x1B, 0x00, 0x00},                   // function pointer, as return type
        {0x1B, 0x00, 0x01, 0x01},             // function pointer, as parameter
        {0x1B, 0x00, 0x01, 0x01, 0x10, 0x0F}, // by reference and pointer: two levels
    };
    for (const Bytes& wrapping : wrappings) {
        const std::size_t levels = wrapping.back() == 0x0F && wrapping.size() > 1 ? 2 : 1;
        const std::size_t fitting = (SigParser::kMaxTypeDepth - 1) / levels;
        SigParser deepest;
        EXPECT_TRUE(parse(deepest, nested(wrapping, fitting, {0x08})));
        SigParser deeper;
        EXPECT_FALSE(parse(deeper, nested(wrapping, fitting + 1, {0x08})));
        SigParser endless;
        EXPECT_FALSE(parse(endless, nested(wrapping, 100'000, {0x08})));
    }
}

TEST(SigParser, TheLimitIsOnDepthNotOnLength) {
    Bytes blob{0x07, 0x90, 0x00}; // 4096 locals, each an array of arrays
    for (int i = 0; i < 4096; ++i) {
        blob.insert(blob.end(), {0x1D, 0x1D, 0x08});
    }
    SigParser parser;
    EXPECT_TRUE(parse(parser, blob));
    EXPECT_EQ(parser.cursor, parser.sigEnd);
}

} // namespace
} // namespace corvane
