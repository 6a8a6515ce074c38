#include "fake_reaper/fake_reaper.h"

#include <gmock/gmock.h>

#include "support/host_fixture.h"

using FakeHost = testing_support::HostTest;
using testing::HasSubstr;

TEST_F(FakeHost, NotesEveryBrokenRuleInTheOrderBroken) {
  PCM_source* twice = quillmere::PCM_Source_CreateFromFile(tone("t.wav", 1.0).c_str());
  for (int i = 0; i < 2; ++i) quillmere::PCM_Source_Destroy(twice);
  quillmere::PCM_Source_CreateFromFile(tone("leaked.wav", 1.0).c_str());
  quillmere::PreventUIRefresh(-1);
  EXPECT_THAT(host().checkSettled(),
              testing::ElementsAre(HasSubstr("destroyed twice"), HasSubstr("more often than held"),
                                   HasSubstr("not balanced"), HasSubstr("leaked.wav")));
  host().reset();
}
