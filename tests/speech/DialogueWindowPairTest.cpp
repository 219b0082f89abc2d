#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "engine/speech/DialogueWindowPair.h"

namespace velorum {
namespace {

// Both modes against a plain sum over the last L values, with reads at every
// step and pushes in uneven pieces.
TEST(DialogueWindowPair, MeansEqualThePlainSumOverTheLastValues) {
  struct Case {
    int momentary, shortTerm, step;
  };
  for (const Case c : {Case{40, 300, 10},     // lengths multiples of the step: block mode
                       Case{44, 331, 10}}) {  // otherwise: ring mode
    SCOPED_TRACE(c.momentary);
    DialogueWindowPair w;
    w.Resize(c.momentary, c.shortTerm, c.step);
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::uniform_int_distribution<int> piece(1, 4);
    std::vector<double> all;
    for (int step = 0; step < 120; ++step) {
      std::vector<double> v(static_cast<std::size_t>(c.step));
      for (double& x : v) x = u(rng);
      for (int at = 0; at < c.step;) {
        const int n = std::min(piece(rng), c.step - at);
        w.Push(v.data() + at, n);
        at += n;
      }
      all.insert(all.end(), v.begin(), v.end());
      auto plain = [&](int length) {
        double s = 0.0;
        for (std::size_t i = all.size() > static_cast<std::size_t>(length)
                                 ? all.size() - static_cast<std::size_t>(length)
                                 : 0;
             i < all.size(); ++i)
          s += all[i];
        return s / length;
      };
      ASSERT_NEAR(w.MomentaryMeanSquare(), plain(c.momentary), 1e-9) << step;
      ASSERT_NEAR(w.ShortTermMeanSquare(), plain(c.shortTerm), 1e-9) << step;
    }
    w.Clear();
    EXPECT_EQ(w.MomentaryMeanSquare(), 0.0);
    EXPECT_EQ(w.ShortTermMeanSquare(), 0.0);
  }
}

}  // namespace
}  // namespace velorum
