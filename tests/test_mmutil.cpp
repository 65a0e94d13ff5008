// Text and numeric helpers: the character sets and edge behaviour the readers rely on.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "mmutil.h"
#include "test_support.h"

TEST(MmutilText, TrimFamiliesAndComparisons)
{
    std::string s = "\t a b \r\n", v = "\va\f", q = "  'a b' ", t = "\"x\ty\"\n", w = " \t\r\n";
    EXPECT_EQ(trim(s), "a b");
    EXPECT_EQ(trim(w), "");
    EXPECT_EQ(trim(v), "\va\f");  // vertical tab and form feed stay
    EXPECT_EQ(sg_trim(q), "ab");
    EXPECT_EQ(sg_trim(t), "x\ty");  // inner tabs stay
    char a[] = "\n", b[] = " \n", c[] = "  h x \n";
    c_trim(a), c_trim(b), c_trim(c);  // never removes the first character
    EXPECT_STREQ(a, "\n");
    EXPECT_STREQ(b, "\n");
    EXPECT_STREQ(c, "h x");
    EXPECT_FALSE(iequals("abc ", "abc"));
    EXPECT_TRUE(my_strcasestr("Quantum-x", "quantum", 5) && my_strcasestr("AB", "ab", 5));  // "AB" ends with "ab"
    EXPECT_FALSE(my_strcasestr("mar", "marcus", 6) || my_strcasestr("ab", "abc", 5));
    std::vector<std::string> out{"stale"};
    EXPECT_TRUE(tokenize(out, "  1  2 3 ", " "));
    EXPECT_EQ(out, (std::vector<std::string>{"1", "2", "3"}));
    EXPECT_FALSE(tokenize(out, nullptr, " ") || tokenize(out, "a", nullptr));
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(RemoveWhiteSpaceUnderscore("P 21_c\t"), "P21c\t");
    EXPECT_EQ(remove_filename_extension("a.b.cif"), "a.b");
    EXPECT_EQ(remove_filename_extension("plain"), "plain");
    EXPECT_TRUE(my_strcasestr("x", "y", 0));
    EXPECT_EQ(strprintf("%s-%03d", "ab", 7), "ab-007");
    c_trim(nullptr);
    EXPECT_FALSE(file_exists(nullptr) || file_exists("/nonexistent/file"));
}

TEST(MmutilRegression, HandCheckedLineAndFailures)
{
    const double x[] = {0, 1, 2}, y[] = {1, 3, 5}, same[] = {4, 4, 4};
    double a, b, s;
    // y = 1, 2, 6, 7 on x = 0..3: slope (4*35 - 6*16) / 20 = 2.2, intercept 0.7;
    // residuals 0.3, -0.9, 0.9, -0.3 leave sqrt(1.8 / 2) as the standard error.
    const double x4[] = {0, 1, 2, 3}, y4[] = {1, 2, 6, 7};
    EXPECT_EQ(LinearRegression(x4, y4, 4, &a, &b, &s), 0);
    EXPECT_NEAR(a, 0.7, 1e-14);
    EXPECT_NEAR(b, 2.2, 1e-14);
    EXPECT_NEAR(s, std::sqrt(0.9), 1e-14);
    testing::internal::CaptureStderr();
    EXPECT_EQ(LinearRegression(x, y, 2, &a, &b, &s), -1);
    EXPECT_EQ(LinearRegression(same, y, 3, &a, &b, &s), 0);  // degenerate: no message
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Not enough data [2] (at least n > 2)!\n");
    EXPECT_EQ(b, 0.0);
}

TEST(MmutilRandom, Ran2StaysInsideTheOpenIntervalAndRepeats)
{
    // Outputs 1, 14, 27 and 40 of an independent transcription of the published
    // generator: seed 12345 runs on the all-zero shuffle table, seed -7 fills it.
    const std::pair<int64_t, std::vector<double>> reference[] = {
        {12345, {0.6554163483485531, 0.206480507064072, 0.20228213686215768, 0.16693243998533924}},
        {-7, {0.45206034994923033, 0.18317786025354552, 0.5754704125760984, 0.2505134005535576}}};
    for (const auto& [seed, values] : reference) {
        reset_random_state(seed);
        for (int i = 0; i < 40; ++i) {
            const double u = randUniform();
            if (i % 13 == 0) {
                EXPECT_EQ(u, values[i / 13]) << "seed " << seed << ", output " << i + 1;
            }
        }
    }
    // Draws that reach the top: clamped to 1 - 1.2e-7, and one just below that.
    for (const auto& [seed, draw, value] : {std::tuple{14, 775053, 0.99999988}, {7, 832082, 0.9999998756684314}}) {
        reset_random_state(seed);
        for (int i = 1; i < draw; ++i) randUniform();
        EXPECT_EQ(randUniform(), value) << "seed " << seed;
    }
    reset_random_state(0);  // the clock's seed may be 0: taken as 1, as -1 is
    const double first = randUniform();
    reset_random_state(-1);
    EXPECT_EQ(randUniform(), first);
    reset_random_state(1);  // a positive seed runs on the all-zero shuffle table
    EXPECT_NE(randUniform(), first);
    reset_random_state(12345);
    for (int i = 0; i < 20000; ++i) {
        const double u = randUniform();
        ASSERT_TRUE(u > 0.0 && u <= 0.99999988) << u;
    }
}

TEST(MmutilSort, QuickSortOrdersTheIndexNotTheKeys)
{
    const double keys[] = {3, 1, 2};
    int idx[] = {0, 1, 2};
    quickSort_d(keys, idx, 3);
    EXPECT_EQ(std::vector<int>(idx, idx + 3), (std::vector<int>{1, 2, 0}));
    std::mt19937 gen(7);
    for (int n : {0, 1, 2, 5, 64, 301}) {
        std::vector<double> k(n);
        for (double& v : k) v = static_cast<double>(gen() % 17);  // many ties
        std::vector<int> order(n);
        for (int i = 0; i < n; ++i) order[i] = i;
        quickSort_d(k.data(), order.data(), n);
        std::vector<int> sorted = order;
        std::sort(sorted.begin(), sorted.end());
        for (int i = 0; i < n; ++i) ASSERT_EQ(sorted[i], i) << "not a permutation, n=" << n;
        for (int i = 1; i < n; ++i) ASSERT_LE(k[order[i - 1]], k[order[i]]) << "n=" << n;
    }
}

TEST(MmutilMatrix, InverseProductAndLength)
{
    const Mat3 m{{{2, 1, -1}, {-1, 3, 2}, {0.5, -2, 4}}};
    Mat3 inv{};
    invert(m, inv);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const double e = m[i][0] * inv[0][j] + m[i][1] * inv[1][j] + m[i][2] * inv[2][j];
            EXPECT_NEAR(e, i == j ? 1.0 : 0.0, 1e-15) << i << j;
        }
    EXPECT_EQ(mat_vec_mul(m, {1, -2, 3}), (Vec3{-3, -1, 16.5}));
    EXPECT_EQ(get_magnitude({2, 3, 6}), 7.0);
}

TEST(MmutilMatrix, InvertFailuresEndTheRun)
{
    Mat3 m{{{1e-11, 0, 0}, {0, 1e-10, 0}, {0, 0, 1e-10}}};  // determinant 1e-31
    Mat3 inv{};
    const testsupport::Outcome singular = testsupport::capture([&] { invert(m, inv); }),
                               overlap = testsupport::capture([&] { invert(m, m); });
    EXPECT_EQ(singular.status, -1);
    EXPECT_EQ(overlap.status, -1);
    EXPECT_EQ(singular.out + overlap.out,
              "\nERROR  transport : mmutil : line 600 : \nDeterminant of matrix is zero.\n"
              "\nERROR  transport : mmutil : line 593 : \ninvert - Result matrix overlaps input\n");
}
