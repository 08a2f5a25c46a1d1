// The direct codec against the converters on the corpus documents (twitter.json and
// citm_catalog.json read by name, canada.json by its own root "type"), whole, in chunks,
// and damaged in many places; and every document written back both ways.
#include <gtest/gtest.h>

#include <string>

#include "corpus/CorpusTypes.hpp"
#include "direct/DirectTypesInScope.hpp"
#include "direct/DocumentGenerator.hpp"
#include "support/DirectDifferential.hpp"
#include "support/SharedData.hpp"
#include "support/StagedPublisher.hpp"

namespace connector::testing {
namespace {

constexpr int kDamaged = sanitizedBuild() ? 6 : 25;

struct CorpusDocument {
  const char* file;
  const char* name;  // nullptr: read by its "type" member
  const char* typeName;
};

const CorpusDocument kDocuments[] = {
    {"twitter.json", "corpus/Twitter", "corpus/Twitter"},
    {"citm_catalog.json", "corpus/CitmCatalog", "corpus/CitmCatalog"},
    {"canada.json", nullptr, "FeatureCollection"}};

class DirectCodecCorpusTest : public ::testing::TestWithParam<CorpusDocument> {
 protected:
  DirectCodecCorpusTest() { declareTypesInScope(both); }

  std::string document() const { return readFile(sharedDataDir() / "corpus" / GetParam().file); }
  const std::string* name() {
    if (GetParam().name == nullptr) return nullptr;
    nameHeld = GetParam().name;
    return &nameHeld;
  }

  DirectDifferential both;
  std::string nameHeld;
};

TEST_P(DirectCodecCorpusTest, TheWholeDocumentReadsAndWritesTheSameOnBothPaths) {
  const std::string text = document();
  EXPECT_EQ(both.compareRead(name(), oneShot(text)), "");
  EXPECT_EQ(both.compareRead(name(), oneShot(text, 64)), "");
  const std::string typeName = GetParam().typeName;
  const ReadOutcome read = DirectDifferential::read(*both.reference, &typeName, oneShot(text)());
  ASSERT_TRUE(read.message) << read.failure;
  EXPECT_EQ(both.compareWrite(read.message), "");
}

TEST_P(DirectCodecCorpusTest, TheDocumentInChunksReadsTheSameAsInOneBuffer) {
  const std::string text = document();
  for (const std::size_t size : {std::size_t{61}, std::size_t{4096}, std::size_t{65536}}) {
    EXPECT_EQ(
        both.compareRead(
            name(),
            [&] { return std::make_shared<StagedPublisher>(StagedPublisher::split(text, size)); }),
        "")
        << "chunks of " << size;
  }
}

TEST_P(DirectCodecCorpusTest, TheDocumentDamagedAnywhereReadsTheSameOnBothPaths) {
  const std::string text = document();
  DocumentGenerator generate(7);
  for (int i = 0; i < kDamaged; ++i) {
    const std::string damaged = generate.damaged(text);
    EXPECT_EQ(both.compareRead(name(), oneShot(damaged)), "") << "damage " << i;
  }
}

TEST_P(DirectCodecCorpusTest, TheDocumentReadByTheWrongTypeFailsTheSameOnBothPaths) {
  const std::string text = document();
  const std::string other = GetParam().file[0] == 't' ? "corpus/CitmCatalog" : "corpus/Twitter";
  EXPECT_EQ(both.compareRead(&other, oneShot(text)), "");
}

INSTANTIATE_TEST_SUITE_P(Corpus, DirectCodecCorpusTest, ::testing::ValuesIn(kDocuments),
                         [](const ::testing::TestParamInfo<CorpusDocument>& info) {
                           std::string file = info.param.file;
                           return file.substr(0, file.find('.'));
                         });

}  // namespace
}  // namespace connector::testing
