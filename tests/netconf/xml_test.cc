#include "host/netconf/xml.h"

#include <gtest/gtest.h>

#include <string>

namespace qdt::host {
namespace {

std::string Show(const XmlElement &element) {
  std::string text = "{" + element.space + "}" + element.name;
  for (const auto &one : element.attributes)
    text += " " + (one.space.empty() ? "" : "{" + one.space + "}") + one.name + "=" + one.value;
  text += "(" + element.text;
  for (const auto &child : element.children) {
    EXPECT_EQ(child->parent, &element);
    text += "|" + Show(*child);
  }
  return text + ")";
}

std::string Read(std::string_view xml, const XmlLimits &limits = {}) {
  try {
    return Show(*ReadXml(xml, limits));
  } catch (const XmlError &error) {
    return error.what();
  }
}

TEST(Xml, Elements) {
  EXPECT_EQ(Read("<a/>"), "{}a()");
  EXPECT_EQ(Read("<?xml version=\"1.0\"?>\n<!-- x --><a >t<b/>u</a >\n<!-- y -->"), "{}a(tu|{}b())");
  EXPECT_EQ(Read("\xef\xbb\xbf<a-1._b/>"), "{}a-1._b()");
  EXPECT_EQ(Read("<a><b><c/></b><b>x</b></a>"), "{}a(|{}b(|{}c())|{}b(x))");
}

TEST(Xml, Namespaces) {
  EXPECT_EQ(Read("<a xmlns='u'><b xmlns=''/><c/></a>"), "{u}a(|{}b()|{u}c())");
  EXPECT_EQ(Read("<p:a xmlns:p='u' p:x='1' x='2'><q:b xmlns:q='v'/></p:a>"), "{u}a {u}x=1 x=2(|{v}b())");
  EXPECT_EQ(Read("<a xml:lang='en'/>"), "{}a {http://www.w3.org/XML/1998/namespace}lang=en()");
  EXPECT_EQ(Read("<p:a/>"), "the prefix \"p\" stands for no namespace, at byte 7");
  EXPECT_EQ(Read("<a xmlns:p=''/>"), "a namespace cannot be declared so, at byte 14");
  EXPECT_EQ(Read("<a xmlns:p='u' xmlns:q='u' p:x='' q:x=''/>"), "an attribute is given twice, at byte 43");
  EXPECT_EQ(Read("<p:a xmlns:p='u'></q:a>"), "an element ends that is not open, at byte 20");
}

TEST(Xml, Text) {
  EXPECT_EQ(Read("<a>&lt;&amp;&gt;&quot;&apos;&#65;&#x20ac;&#x1f4f6;</a>"),
            "{}a(<&>\"'A\xe2\x82\xac\xf0\x9f\x93\xb6)");
  EXPECT_EQ(Read("<a><![CDATA[<&]]]]><![CDATA[>]]></a>"), "{}a(<&]]>)");
  EXPECT_EQ(Read("<a>x\r\ny\rz</a>"), "{}a(x\ny\nz)");
  EXPECT_EQ(Read("<a x='1\n2\t&#10;\"'/>"), "{}a x=1 2 \n\"()");
  EXPECT_EQ(Read("<a>x<!-- - -->y<?z?></a>"), "{}a(xy)");
}

TEST(Xml, WhatIsNoDocument) {
  for (const char *xml : {"",
                          " ",
                          "x",
                          "<",
                          "<a",
                          "<a ",
                          "<a/",
                          "<a>",
                          "<a></b>",
                          "<a></a",
                          "<a></ab>",
                          "<a/><b/>",
                          "<a/>x",
                          "< a/>",
                          "<1/>",
                          "<a b/>",
                          "<a b=c/>",
                          "<a b='c/>",
                          "<a b='<'/>",
                          "<a b='1' b='2'/>",
                          "<a b='1'c='2'/>",
                          "<a>&</a>",
                          "<a>&x;</a>",
                          "<a>&#;</a>",
                          "<a>&#x;</a>",
                          "<a>&#0;</a>",
                          "<a>&#xD800;</a>",
                          "<a>&#x110000;</a>",
                          "<a>&#99999999999;</a>",
                          "<a>&#-5;</a>",
                          "<a>]]></a>",
                          "<a><![CDATA[</a>",
                          "<a><!-- -- --></a>",
                          "<a><!--</a>",
                          "<a><?x</a>",
                          "<a>\x01</a>",
                          "<a>\xff</a>",
                          "<a>\xc3</a>",
                          "<!DOCTYPE a><a/>",
                          "<!DOCTYPE a [<!ENTITY b 'c'>]><a>&b;</a>",
                          "<a><!ELEMENT b></a>",
                          "<a xmlns='u' xmlns='v'/>",
                          "<a xmlns:xmlns='u'/>",
                          "<a:/>",
                          "<:a/>",
                          "<a::b xmlns:a='u'/>",
                          "</a>",
                          "<a/>\xff"})
    EXPECT_NE(Read(xml).find(", at byte "), std::string::npos) << xml << ": " << Read(xml);
  EXPECT_EQ(Read(std::string_view("<a>\0</a>", 8)),
            "there is a character that no document can hold, at byte 4");
}

TEST(Xml, Limits) {
  const XmlLimits small{.depth = 3, .elements = 5, .attributes = 2};
  EXPECT_EQ(Read("<a><b><c/></b></a>", small), "{}a(|{}b(|{}c()))");
  EXPECT_EQ(Read("<a><b><c><d/></c></b></a>", small), "elements stand more than 3 deep, at byte 12");
  EXPECT_EQ(Read("<a><b/><b/><b/><b/></a>", small), "{}a(|{}b()|{}b()|{}b()|{}b())");
  EXPECT_EQ(Read("<a><b/><b/><b/><b/><b/></a>", small), "there are more than 5 elements, at byte 21");
  EXPECT_EQ(Read("<a x='' y=''/>", small), "{}a x= y=()");
  EXPECT_EQ(Read("<a x='' y='' z=''/>", small), "an element has more than 2 attributes, at byte 14");
}

TEST(Xml, RootOfABeginning) {
  EXPECT_EQ(*ReadXmlRoot("<rpc message-id='7'><get><filter>")->FindAttribute("message-id"), "7");
  EXPECT_EQ(ReadXmlRoot("<rpc message-id='7"), nullptr);
}

TEST(Xml, IsWrittenWithoutPrefixes) {
  const auto root =
      ReadXml("<p:a xmlns:p='u' x='1'> <b xmlns='v'>1 &lt; 2</b><p:c/><p:d xmlns:q='w'>q:id</p:d></p:a>");
  std::string xml;
  AppendXml(*root, "", &xml);
  EXPECT_EQ(xml, "<a xmlns=\"u\"><b xmlns=\"v\">1 &lt; 2</b><c/><d xmlns:q=\"w\">q:id</d></a>");
}

}  // namespace
}  // namespace qdt::host
