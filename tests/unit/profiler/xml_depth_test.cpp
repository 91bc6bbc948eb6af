#include "profiler/xml_depth.h"

#include <gtest/gtest.h>

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <algorithm>
#include <sstream>
#include <string>

namespace corvane {
namespace {

namespace pt = boost::property_tree;

std::string repeated(const std::string& text, int count) {
    std::string result;
    for (int i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

// Levels of elements below a node, pseudo-children left out.
int depth_of(const pt::ptree& tree) {
    int depth = 0;
    for (const auto& [name, child] : tree) {
        if (name != "<xmlattr>") {
            depth = std::max(depth, 1 + depth_of(child));
        }
    }
    return depth;
}

// The depth that the parser itself finds.
int parsed_depth(const std::string& xml) {
    std::istringstream stream(xml);
    pt::ptree tree;
    pt::read_xml(stream, tree, pt::xml_parser::no_comments);
    return depth_of(tree);
}

// The depth of a document whose innermost elements are not empty tags, which do not count.
void expect_depth(const std::string& xml, int depth) {
    SCOPED_TRACE(xml.substr(0, 80));
    EXPECT_EQ(parsed_depth(xml), depth);
    EXPECT_FALSE(nests_deeper_than(xml, depth));
    EXPECT_TRUE(nests_deeper_than(xml, depth - 1));
}

TEST(NestsDeeperThan, CountsOpenElements) {
    expect_depth("<a></a>", 1);
    expect_depth("<a><b></b><b></b><b></b></a>", 2);
    expect_depth("<a><b><c></c></b></a>", 3);
    expect_depth("<a><b><c></c></b><b></b></a>", 3);
    EXPECT_FALSE(nests_deeper_than("", 0));
    EXPECT_FALSE(nests_deeper_than("<a/>", 0));
    EXPECT_FALSE(nests_deeper_than("<a  b='1' />", 0));
}

TEST(NestsDeeperThan, PassesOverWhatIsNoElement) {
    expect_depth("<?xml version='1.0'?><!DOCTYPE a><a></a>", 1);
    expect_depth("<a><!-- <b><c><d> --></a>", 1);
    expect_depth("<a><![CDATA[<b><c></c>]]></a>", 1);
    expect_depth("<a><? <b><c> ?></a>", 1);
    expect_depth("<a b='<c><d>' e=\"'/>\"></a>", 1);
    expect_depth("<a b='>' c = \"</a>\"></a>", 1);
    expect_depth("<!ELEMENT a <b><a></a>", 1);
}

// Each of these closes elements, or opens a quote or a comment, where the parser sees none.
TEST(NestsDeeperThan, CannotBeMisled) {
    const std::string deep = repeated("<a>", 50) + repeated("</a>", 50);
    for (const std::string& start :
         {"<!DOCTYPE a [" + repeated("</a>", 50) + "]>",
          std::string("<!DOCTYPE a [<!-- don't -->]>"), std::string("<!DOCTYPE a [ [>] <b> ]\">"),
          std::string("<!DOCTYPEa \"[>"), std::string("<!--><![CDATA[ -->"),
          std::string("<!--->-->"), std::string("<?>?>"), std::string("<!'>"),
          std::string("<!x [<b>"), std::string("<b></b'><b/><b></\">"), std::string("<b'/>"),
          std::string("<b><![CDATA[]]]]></b>"), std::string("<b c='&lt;/b>'></b>")}) {
        expect_depth(start + deep, 50);
    }
    expect_depth("<a>" + repeated("<!-- </a> -->", 60) + deep + "</a>", 51);
    expect_depth("<a>" + repeated("<![CDATA[</a>]]>", 60) + deep + "</a>", 51);
    expect_depth("<a>" + repeated("<b c='/>'>", 9) + deep + repeated("</b>", 9) + "</a>", 60);
}

TEST(NestsDeeperThan, StopsAtAZeroByte) {
    EXPECT_FALSE(nests_deeper_than(std::string("<a/>\0<a><a><a>", 14), 0));
}

TEST(NestsDeeperThan, EndsWithTextThatIsCutShort) {
    const std::string whole = "<?x y?><!DOCTYPE a [<b>]><a b='c' d=\"e\"><!-- f --><![CDATA[g]]>"
                              "<h/></a>";
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(nests_deeper_than(whole.substr(0, length), 1)) << length;
    }
}

TEST(NestsDeeperThan, TakesAMillionLevels) {
    const std::string open = repeated("<a>", 1'000'000);
    EXPECT_TRUE(nests_deeper_than(open, 128));
    EXPECT_FALSE(nests_deeper_than(open, 1'000'000));
}

} // namespace
} // namespace corvane
