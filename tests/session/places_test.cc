#include "host/session/places.h"

#include <gtest/gtest.h>

#include <string>

namespace qdt::host {
namespace {

std::string Joined(const std::vector<std::string> &places) {
  std::string all;
  for (const std::string &place : places) all += place + ' ';
  return all;
}

std::string OfXpath(const std::string &path) { return Joined(PlacesOfXpath(path, {{"f", "u"}, {"g", "v"}})); }

TEST(PlacesOfXpath, TheFirstSteps) {
  EXPECT_EQ(OfXpath("/f:top//g:x"), "{u}top ");
  EXPECT_EQ(OfXpath("/f:a | /g:b/c"), "{u}a {v}b ");
  EXPECT_EQ(OfXpath("/f:a/f:b"), "{u}a/b ");
  EXPECT_EQ(OfXpath("/f:a/g:b/f:c"), "{u}a ");
  EXPECT_EQ(OfXpath("/f:a/f:b/f:c[f:key='|]'] | /g:d[(1)]/g:e"), "{u}a/b {v}d ");
  EXPECT_EQ(OfXpath("/f:a/f:b[f:c=\"'\"]/f:d"), "{u}a/b ");
}

TEST(PlacesOfXpath, AnyWhereTheyDoNotSay) {
  for (const char *path :
       {"//f:x", "f:x", "/h:x", "/x", "/f:x/../g:y", "/f:x/parent::*", "count(/f:x)", "", "|", "/f:x]",
        "/f:x['", "/f:x and /f:y", "/*", "/f:node()", "/f:a/f:b/f:c[f:key='7\"]"})
    EXPECT_EQ(OfXpath(path), "") << path;
}

TEST(PlacesOfXpath, ANumberThatAnEntryIsToHave) {
  EXPECT_EQ(OfXpath("/f:a/f:b/f:c[f:key='7']/f:d[1]"), "{u}a/b?key=7 ");
  EXPECT_EQ(OfXpath("/f:a/f:b/f:c[ f:key = 0 ] | /f:a/f:b/f:c[f:key=\"12\"]"), "{u}a/b?key=0 {u}a/b?key=12 ");
  for (const char *predicate :
       {"[f:key='07']", "[f:key='x']", "[g:key='7']", "[f:key>'7']", "[f:key='7' or f:d]", "[f:key=7.0]",
        "[7]", "[f:key=f:other]", "[f:d/f:key='7']", "[f:key='-7']"})
    EXPECT_EQ(OfXpath("/f:a/f:b/f:c" + std::string(predicate)), "{u}a/b ") << predicate;
}

std::string OfSubtree(const std::string &xml) {
  std::vector<std::string> places;
  AddPlacesOfSubtree(*ReadXml(xml), &places);
  return Joined(places);
}

TEST(PlacesOfSubtree, AsFarAsTheFilterSays) {
  EXPECT_EQ(OfSubtree("<a xmlns='u'/>"), "{u}a ");
  EXPECT_EQ(OfSubtree("<a xmlns='u'><b/><c><d/></c></a>"), "{u}a/b {u}a/c ");
  EXPECT_EQ(OfSubtree("<a xmlns='u'><b/><c>7</c></a>"), "{u}a ");
  EXPECT_EQ(OfSubtree("<a xmlns='u'><b xmlns='v'/></a>"), "{u}a ");
  EXPECT_EQ(OfSubtree("<a xmlns='u'><b><c><x/><key> 7 </key></c></b></a>"), "{u}a/b?key=7 ");
  EXPECT_EQ(OfSubtree("<a xmlns='u'><b><c><key>07</key><d><key>7</key></d></c></b></a>"), "{u}a/b ");
  EXPECT_EQ(OfSubtree("<a xmlns='u'><b><c><key>7</key></c><c><key>8</key></c></b></a>"), "{u}a/b ");
}

}  // namespace
}  // namespace qdt::host
