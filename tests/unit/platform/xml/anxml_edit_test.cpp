#include <gtest/gtest.h>
#include <string>

#include "support/private_device.h"

#include "platform/anxml.h"

namespace kelt::tests {
namespace {

constexpr const char* kFile = "/opt/Quorvane/list.xml";
constexpr const wchar_t* kPath = L"/opt/Quorvane/list.xml";
const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

/// A document with the root "r", loaded from a file, and its root.
class AnXmlEdit : public PrivateDevice {
 protected:
  void load(const std::string& content) {
    putFile(kFile, content);
    ASSERT_TRUE(m_xml.useExistingFile(kPath, L"r", nullptr, nullptr));
    m_root = AnXmlNode(&m_xml);
  }

  /// What the document is written as, declaration and last line end left out.
  std::string written() {
    EXPECT_TRUE(m_xml.writeFile(kPath, false, false));
    const std::string text = contentOf(kFile);
    EXPECT_EQ(text.substr(0, kDeclaration.size()), kDeclaration);
    EXPECT_EQ(text.back(), '\n');
    return text.substr(kDeclaration.size(), text.size() - kDeclaration.size() - 1);
  }

  bool bFinds(AnXmlNode* found, const wchar_t* name, const wchar_t* attribute = nullptr, AString* text = nullptr) {
    return m_root.getExistingChild(found, name, attribute, nullptr, nullptr, text);
  }

  AnXml m_xml;
  AnXmlNode m_root;
};

TEST_F(AnXmlEdit, GetExistingChildFindsTheFirstElementOfThatName) {
  load("<r><!--b--><a>1</a><b>2</b><b>3</b></r>");
  AnXmlNode found;
  AString text;
  ASSERT_TRUE(bFinds(&found, L"b", nullptr, &text));
  EXPECT_EQ(text.str(), L"2");
  ASSERT_TRUE(found.setValue(L"", L"x"));
  EXPECT_EQ(written(), "<r><!--b--><a>1</a><b>x</b><b>3</b></r>");
}

TEST_F(AnXmlEdit, GetExistingChildWithAnAttributeFindsTheFirstElementThatCarriesIt) {
  load("<r><s Port='1'/><t ServerIP='0'/><s ServerIP=''/><s ServerIP='10.0.0.1'/></r>");
  AnXmlNode found;
  AString text = L"unset";
  ASSERT_TRUE(bFinds(&found, L"s", L"ServerIP", &text));
  EXPECT_EQ(text.str(), L"");
  ASSERT_TRUE(found.remove());
  ASSERT_TRUE(bFinds(&found, L"s", L"ServerIP", &text));
  EXPECT_EQ(text.str(), L"10.0.0.1");
}

TEST_F(AnXmlEdit, GetExistingChildLeavesItsOutputsWhenThereIsNone) {
  load("<r><a><b x='1'/></a><c x='1'/></r>");
  AnXmlNode found;
  ASSERT_TRUE(bFinds(&found, L"c"));
  AString text = L"before";
  EXPECT_FALSE(bFinds(&found, L"b", nullptr, &text));
  EXPECT_FALSE(bFinds(&found, L"a", L"x", &text));
  EXPECT_FALSE(bFinds(&found, L"C", nullptr, &text));
  EXPECT_FALSE(bFinds(&found, L"", nullptr, &text));
  EXPECT_FALSE(bFinds(&found, nullptr, nullptr, &text));
  EXPECT_EQ(text.str(), L"before");
  ASSERT_TRUE(found.setValue(L"x", L"2"));
  EXPECT_EQ(written(), "<r><a><b x=\"1\"/></a><c x=\"2\"/></r>");
}

TEST_F(AnXmlEdit, GetExistingChildFailsWithReservedArguments) {
  load("<r><a/></r>");
  AnXmlNode found;
  EXPECT_FALSE(m_root.getExistingChild(&found, L"a", nullptr, L"", nullptr, nullptr));
  EXPECT_FALSE(m_root.getExistingChild(&found, L"a", nullptr, nullptr, L"", nullptr));
  EXPECT_FALSE(m_root.addChild(&found, L"b", L"", nullptr));
  EXPECT_EQ(written(), "<r><a/></r>");
}

TEST_F(AnXmlEdit, GetExistingChildMayReplaceTheNodeThatItIsAskedOf) {
  load("<r><a><b>deep</b></a></r>");
  AnXmlNode node(m_root);
  AString text;
  ASSERT_TRUE(node.getExistingChild(&node, L"a", nullptr, nullptr, nullptr, nullptr));
  ASSERT_TRUE(node.getExistingChild(&node, L"b", nullptr, nullptr, nullptr, &text));
  EXPECT_EQ(text.str(), L"deep");
}

TEST_F(AnXmlEdit, TryGetChildIsTheSameOperation) {
  load("<r><FIPSmode>0</FIPSmode></r>");
  AnXmlNode found;
  AString text;
  EXPECT_TRUE(m_root.tryGetChild(&found, L"FIPSmode", nullptr, nullptr, nullptr, &text));
  EXPECT_EQ(text.str(), L"0");
  EXPECT_FALSE(m_root.tryGetChild(&found, L"fipsmode", nullptr, nullptr, nullptr, &text));
}

TEST_F(AnXmlEdit, TextJoinsTextAndCdataDirectlyInTheElement) {
  load("<r><a> x&lt;<!-- no --><b>inner</b><![CDATA[<y>]]><?p no?>&#233;&#x1F600; </a></r>");
  AString text;
  ASSERT_TRUE(bFinds(nullptr, L"a", nullptr, &text));
  EXPECT_EQ(text.str(), L" x<<y>\xE9\x1F600 ");
}

TEST_F(AnXmlEdit, ANodeThatIsNoneDoesNothing) {
  AnXmlNode none;
  AnXmlNode found;
  EXPECT_FALSE(none.getExistingChild(&found, L"a", nullptr, nullptr, nullptr, nullptr));
  EXPECT_FALSE(none.tryGetChild(&found, L"a", nullptr, nullptr, nullptr, nullptr));
  EXPECT_FALSE(none.addChild(&found, L"a", nullptr, nullptr));
  EXPECT_FALSE(none.setValue(L"", L"x"));
  EXPECT_FALSE(none.remove());
  EXPECT_FALSE(AnXmlNode(nullptr).setValue(L"", L"x"));
  EXPECT_FALSE(AnXmlNode(&m_xml).setValue(L"", L"x"));
  AnXmlChildIndex index(&none, L"a");
  AnXmlChildIndex ofNothing(nullptr, L"a");
  AString text;
  EXPECT_FALSE(index.moveNext(L"", &text));
  EXPECT_FALSE(ofNothing.moveNext(L"", &text));
}

TEST_F(AnXmlEdit, AddChildAppendsAfterAllOtherNodes) {
  load("<r> <a/>t<!-- c --></r>");
  AnXmlNode added;
  ASSERT_TRUE(m_root.addChild(&added, L"n", nullptr, L"<1>"));
  ASSERT_TRUE(added.addChild(nullptr, L"m", nullptr, nullptr));
  ASSERT_TRUE(m_root.addChild(&added, L"e", nullptr, L""));
  EXPECT_EQ(written(), "<r> <a/>t<!-- c --><n>&lt;1&gt;<m/></n><e></e></r>");
}

TEST_F(AnXmlEdit, AddChildFailsWithoutAName) {
  load("<r/>");
  AnXmlNode added;
  EXPECT_FALSE(m_root.addChild(&added, L"", nullptr, nullptr));
  EXPECT_FALSE(m_root.addChild(&added, nullptr, nullptr, nullptr));
  EXPECT_EQ(written(), "<r/>");
}

TEST_F(AnXmlEdit, SetValueChangesAnAttributeInPlaceAndAddsAMissingOneAtTheEnd) {
  load("<r><a x='1' y='2'>t</a></r>");
  AnXmlNode found;
  ASSERT_TRUE(bFinds(&found, L"a"));
  ASSERT_TRUE(found.setValue(L"x", L"3"));
  ASSERT_TRUE(found.setValue(L"X", L""));
  ASSERT_TRUE(found.setValue(L"z", static_cast<const wchar_t*>(nullptr)));
  EXPECT_EQ(written(), "<r><a x=\"3\" y=\"2\" X=\"\" z=\"\">t</a></r>");
}

TEST_F(AnXmlEdit, SetValueWithoutANameReplacesTheTextAndKeepsTheChildElements) {
  load("<r><!--c--> one <a>in</a><![CDATA[two]]><?p?> three </r>");
  ASSERT_TRUE(m_root.setValue(L"", L"new"));
  EXPECT_EQ(written(), "<r><!--c-->new<a>in</a><?p?></r>");
}

TEST_F(AnXmlEdit, SetValueWithoutANamePutsNewTextBeforeTheChildElements) {
  load("<r><a/></r>");
  ASSERT_TRUE(m_root.setValue(nullptr, L"new"));
  EXPECT_EQ(written(), "<r>new<a/></r>");
}

TEST_F(AnXmlEdit, SetValueWithEmptyTextLeavesNone) {
  load("<r>t<a/>u</r>");
  ASSERT_TRUE(m_root.setValue(L"", L""));
  EXPECT_EQ(written(), "<r><a/></r>");
}

TEST_F(AnXmlEdit, RemoveTakesTheElementWithAllInItAndNothingElse) {
  load("<r> <a><b/></a> <a/> t</r>");
  AnXmlNode found;
  ASSERT_TRUE(bFinds(&found, L"a"));
  ASSERT_TRUE(found.remove());
  EXPECT_FALSE(found.remove());
  EXPECT_FALSE(found.setValue(L"", L"x"));
  EXPECT_EQ(written(), "<r>  <a/> t</r>");
}

TEST_F(AnXmlEdit, TheRootCannotBeRemoved) {
  load("<r><a/></r>");
  EXPECT_FALSE(m_root.remove());
  ASSERT_TRUE(m_root.setValue(L"x", L"1"));
  EXPECT_EQ(written(), "<r x=\"1\"><a/></r>");
}

TEST_F(AnXmlEdit, ASearchAfterChangesSeesThem) {
  load("<r><a/><b/><a x='2'/></r>");
  AnXmlNode first;
  AnXmlNode found;
  AString text;
  ASSERT_TRUE(bFinds(&first, L"a"));
  ASSERT_TRUE(bFinds(&found, L"a", L"x", &text));
  ASSERT_TRUE(first.setValue(L"x", L"1"));
  ASSERT_TRUE(bFinds(&found, L"a", L"x", &text));
  EXPECT_EQ(text.str(), L"1");

  ASSERT_TRUE(bFinds(&found, L"a"));
  ASSERT_TRUE(found.remove());
  ASSERT_TRUE(bFinds(&found, L"a"));
  ASSERT_TRUE(found.remove());
  EXPECT_FALSE(bFinds(&found, L"a"));
  ASSERT_TRUE(m_root.addChild(nullptr, L"a", nullptr, L"again"));
  ASSERT_TRUE(bFinds(&found, L"a", nullptr, &text));
  EXPECT_EQ(text.str(), L"again");
}

TEST_F(AnXmlEdit, ASearchAfterTheRemovalOfAnotherElementStartsAnew) {
  load("<r><p><a>1</a></p><q><a>2</a></q></r>");
  AnXmlNode p;
  AnXmlNode q;
  AnXmlNode found;
  ASSERT_TRUE(bFinds(&p, L"p"));
  ASSERT_TRUE(bFinds(&q, L"q"));
  ASSERT_TRUE(q.getExistingChild(&found, L"a", nullptr, nullptr, nullptr, nullptr));
  ASSERT_TRUE(q.remove());
  for (const wchar_t* name : {L"x", L"y", L"z"})
    ASSERT_TRUE(m_root.addChild(&q, name, nullptr, nullptr));
  EXPECT_FALSE(q.getExistingChild(&found, L"a", nullptr, nullptr, nullptr, nullptr));
  EXPECT_TRUE(p.getExistingChild(&found, L"a", nullptr, nullptr, nullptr, nullptr));
}

TEST_F(AnXmlEdit, ChildIndexStepsThroughTheElementsOfOneNameInOrder) {
  load("<r><a v='1'>x</a> <b/><a>y</a><c><a>no</a></c><a v=''/></r>");
  AnXmlChildIndex texts(&m_root, L"a");
  AnXmlChildIndex values(&m_root, L"a");
  AString text;
  for (const wchar_t* expected : {L"x", L"y", L""}) {
    ASSERT_TRUE(texts.moveNext(L"", &text));
    EXPECT_EQ(text.str(), expected);
  }
  for (const wchar_t* expected : {L"1", L"", L""}) {
    text = L"before";
    ASSERT_TRUE(values.moveNext(L"v", &text));
    EXPECT_EQ(text.str(), expected);
  }
  text = L"unchanged";
  EXPECT_FALSE(texts.moveNext(L"", &text));
  EXPECT_FALSE(texts.moveNext(L"", &text));
  EXPECT_EQ(text.str(), L"unchanged");
}

TEST_F(AnXmlEdit, ChildIndexOfANameThatIsNotThereHasNoStep) {
  load("<r><a/>text</r>");
  AString text = L"unchanged";
  for (const wchar_t* name : {L"b", L"A", L""}) {
    AnXmlChildIndex index(&m_root, name);
    EXPECT_FALSE(index.moveNext(L"", &text));
  }
  EXPECT_EQ(text.str(), L"unchanged");
}

TEST_F(AnXmlEdit, CopiesOfANodeStandForTheSameElement) {
  load("<r><a/></r>");
  AnXmlNode found;
  ASSERT_TRUE(bFinds(&found, L"a"));
  AnXmlNode copy(found);
  AnXmlNode assigned;
  assigned = copy;
  ASSERT_TRUE(copy.setValue(L"x", L"1"));
  ASSERT_TRUE(assigned.setValue(L"", L"t"));
  EXPECT_EQ(written(), "<r><a x=\"1\">t</a></r>");
}

}  // namespace
}  // namespace kelt::tests
