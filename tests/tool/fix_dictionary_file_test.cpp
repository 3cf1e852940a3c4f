#include "tool/fix_dictionary_file.h"

#include <algorithm>
#include <string>

#include "tests/tool/tool_test.h"
#include "tool/status.h"

namespace tabulo::tool::test {

namespace {

constexpr std::string_view SMALL = R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- A dictionary as FIX engines have it, made small. -->
<fix type="FIX" major="4" minor="4" servicepack="0">
 <header><field name="BeginString" required="Y"/></header>
 <messages>
  <message name="NewOrderSingle" msgtype="D" msgcat="app"><field name="Side" required="Y"/></message>
  <message name="HouseNotice" msgtype="U7" msgcat="app"/>
 </messages>
 <trailer/><components/>
 <fields>
  <field number="54" name="Side" type="CHAR">
   <value enum="1" description="BUY"/>
   <value enum="W" description="WHATEVER"/>
   <value enum="W" description="SECOND_NAME"/>
  </field>
  <field number="5001" name="HouseFlags" type="MULTIPLEVALUESTRING">
   <values><value enum="a" description="FIRST"/><value enum="b" description="&lt;SECOND&gt;"/></values>
  </field>
  <field number="5002" name="HouseData" type="DATA"/>
  <field number="5003" name="HouseDataLen" type="LENGTH"/>
  <field number="38" name="OrderQty" type="QTY"/>
 </fields>
</fix>
)";

class FixDictionaryFileTest : public ToolTest {
  protected:
    FixDictionary read(std::string_view content) const {
        return readFixDictionary(makeFile("dictionary.xml", content));
    }
    // Why a dictionary is refused, without the folder of its file.
    std::string refusal(std::string_view content) const {
        try {
            (void)read(content);  // what is refused gives nothing
        } catch (const Failure& failure) {
            const std::string why = failure.what();
            EXPECT_TRUE(why.starts_with(directory.path() + "/")) << why;
            return why.substr(std::min(why.size(), directory.path().size() + 1));
        }
        return "not refused";
    }
};

TEST_F(FixDictionaryFileTest, AFileNamesWhatItHasAndTheBuiltInListTheRest) {
    const FixDictionary dictionary = read(SMALL);
    EXPECT_EQ(dictionary.tagName(5001), "HouseFlags");
    EXPECT_EQ(dictionary.tagName(11), "ClOrdID");
    EXPECT_EQ(dictionary.messageName("U7"), "HouseNotice");
    EXPECT_EQ(dictionary.messageName("8"), "ExecutionReport");
    EXPECT_EQ(dictionary.valueName(54, "1"), "BUY");
    EXPECT_EQ(dictionary.valueName(54, "W"), "WHATEVER");
    EXPECT_EQ(dictionary.valueName(54, "2"), "") << "the file lists the values of tag 54, and 2 is none of them";
    EXPECT_EQ(dictionary.valueName(39, "2"), "Filled");
    EXPECT_EQ(dictionary.valueName(5001, "b a c"), "<SECOND>; FIRST");
    EXPECT_EQ(dictionary.dataFields().dataTagOf(5003), 5002);
    EXPECT_EQ(dictionary.dataFields().dataTagOf(95), 96);
}

TEST_F(FixDictionaryFileTest, WhatIsNoXmlIsRefusedWithItsPlace) {
    EXPECT_EQ(refusal(""), "dictionary.xml:1:1: No document element found");
    EXPECT_EQ(refusal("<fix>\n  <fields>\n   <field number='1'</fields></fix>"),
              "dictionary.xml:3:21: Error parsing start element tag");
    EXPECT_TRUE(refusal("<fix><fields>").starts_with("dictionary.xml:1:")) << refusal("<fix><fields>");
    EXPECT_TRUE(refusal(std::string_view("\0\x01\xFF", 3)).starts_with("dictionary.xml:1:"));
}

TEST_F(FixDictionaryFileTest, WhatIsNoDictionaryIsRefusedWithItsPlace) {
    EXPECT_EQ(refusal("<html><body/></html>"),
              "dictionary.xml:1:2: no FIX data dictionary: it begins with <html>, not with <fix>");
    EXPECT_EQ(refusal("<fix><fields/></fix>"),
              "dictionary.xml:1:2: no FIX data dictionary: there is no <field> in <fields>");
    const auto withField = [](const std::string& field) { return "<fix><fields>\n " + field + "</fields></fix>"; };
    EXPECT_EQ(refusal(withField("<field name='A'/>")), "dictionary.xml:2:3: a <field> without number");
    EXPECT_EQ(refusal(withField("<field number='1'/>")), "dictionary.xml:2:3: a <field> without name");
    for (const char* number : {"x", "0", "-1", "2147483648", "99999999999999999999"}) {
        EXPECT_EQ(refusal(withField("<field number='" + std::string(number) + "' name='A'/>")),
                  "dictionary.xml:2:3: \"" + std::string(number) + "\" is no tag");
    }
    EXPECT_EQ(refusal(withField("<field number='1' name='A'/>\n<field number='1' name='B'/>")),
              "dictionary.xml:3:2: the second name of tag 1");
    EXPECT_EQ(refusal(withField("<field number='1' name='A'><value description='X'/></field>")),
              "dictionary.xml:2:30: a <value> without enum");
    EXPECT_EQ(
        refusal("<fix><fields><field number='1' name='A'/></fields>\n<messages><message name='M'/></messages></fix>"),
        "dictionary.xml:2:12: a <message> without msgtype");
}

TEST_F(FixDictionaryFileTest, AFileThatCannotBeReadIsRefused) {
    EXPECT_THROW((void)readFixDictionary(file("missing.xml")), Failure);
    try {
        (void)readFixDictionary(directory.path());
        ADD_FAILURE() << "a folder was read";
    } catch (const Failure& failure) {
        EXPECT_NE(std::string(failure.what()).find("is a folder"), std::string::npos) << failure.what();
    }
    std::filesystem::resize_file(makeFile("huge.xml", "<fix>"), 65 * 1024 * 1024);
    try {
        (void)readFixDictionary(file("huge.xml"));
        ADD_FAILURE() << "65 MiB were read";
    } catch (const Failure& failure) {
        EXPECT_NE(std::string(failure.what()).find("larger than 64 MiB"), std::string::npos) << failure.what();
    }
}

TEST_F(FixDictionaryFileTest, DeepNestingAndEntitiesDoNoHarm) {
    std::string deep = "<fix>";
    for (int n = 0; n < 200000; ++n) {
        deep += "<a>";
    }
    EXPECT_TRUE(refusal(deep).starts_with("dictionary.xml:1:")) << refusal(deep).substr(0, 80);
    for (int n = 0; n < 200000; ++n) {
        deep += "</a>";
    }
    EXPECT_EQ(read(deep + "<fields><field number='1' name='A'/></fields></fix>").tagName(1), "A");
    const std::string entity =
        "<!DOCTYPE fix [<!ENTITY e SYSTEM \"file:///etc/hostname\">]>\n"
        "<fix><fields><field number='1' name='&e;'/></fields></fix>";
    EXPECT_EQ(read(entity).tagName(1), "&e;");
}

}  // namespace

}  // namespace tabulo::tool::test
