#include "platform/linux/bus/Introspection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using platform::introspection::kLargestDescription;
using platform::introspection::methodsOf;
using testing::ElementsAre;
using testing::IsEmpty;

std::string node(const std::string& contents) {
  return "<!DOCTYPE node PUBLIC \"-//x\" \"http://x\">\n<node>" + contents + "</node>";
}

TEST(IntrospectionTest, TheMethodsOfTheInterfaceAreFound) {
  EXPECT_THAT(methodsOf(node("<interface name='a.B'><method name='one'><arg type='s'/></method>"
                             "<method name='two'/></interface>"),
                        "a.B"),
              ElementsAre("one", "two"));
}

TEST(IntrospectionTest, OtherInterfacesObjectsSignalsAndPropertiesDoNotCount) {
  EXPECT_THAT(methodsOf(node("<interface name='a.C'><method name='one'/></interface>"
                             "<interface name='a.B'><signal name='two'/>"
                             "<property name='three' type='s' access='read'/></interface>"
                             "<method name='stray'/>"
                             "<node name='child'><interface name='a.B'><method name='four'/>"
                             "</interface></node>"),
                        "a.B"),
              IsEmpty());
}

TEST(IntrospectionTest, AnInterfaceInTwoPiecesIsOne) {
  EXPECT_THAT(methodsOf(node("<interface name='a.B'><method name='one'/></interface>"
                             "<interface name='a.B'><method name='two'/></interface>"),
                        "a.B"),
              ElementsAre("one", "two"));
}

TEST(IntrospectionTest, WhatIsNotWellFormedDeclaresNothing) {
  const std::string good = node("<interface name='a.B'><method name='one'/></interface>");
  EXPECT_THAT(methodsOf(good.substr(0, good.size() - 1), "a.B"), IsEmpty());
  EXPECT_THAT(methodsOf(good + "<", "a.B"), IsEmpty());
  EXPECT_THAT(methodsOf("", "a.B"), IsEmpty());
  EXPECT_THAT(methodsOf("no description", "a.B"), IsEmpty());
  EXPECT_THAT(methodsOf(node("<interface name='a.B'><method name='\xFF'/></interface>"), "a.B"),
              IsEmpty());
  EXPECT_THAT(methodsOf(node("<interface name='a.B'><method name='one'></interface>"), "a.B"),
              IsEmpty());
}

TEST(IntrospectionTest, AMethodWithoutANameIsNoneThatAnybodyAsksFor) {
  EXPECT_THAT(methodsOf(node("<interface name='a.B'><method/></interface>"), "a.B"),
              ElementsAre(""));
}

TEST(IntrospectionTest, ADescriptionThatIsTooLongDeclaresNothing) {
  const std::string start = "<node><interface name='a.B'><method name='one'/></interface>";
  const std::string end = "</node>";
  const std::size_t room = kLargestDescription - start.size() - end.size();
  EXPECT_THAT(methodsOf(start + std::string(room, ' ') + end, "a.B"), ElementsAre("one"));
  EXPECT_THAT(methodsOf(start + std::string(room + 1, ' ') + end, "a.B"), IsEmpty());
}

TEST(IntrospectionTest, DeepNestingDoesNoHarm) {
  std::string deep;
  for (int i = 0; i < 30000; ++i) deep += "<node>";
  EXPECT_THAT(methodsOf(deep, "a.B"), IsEmpty());
}

}  // namespace
