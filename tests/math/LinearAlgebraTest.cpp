// Cross-checks of the dense routines against Eigen on random well- and
// ill-conditioned matrices.
#include "math/LinearAlgebra.h"

#include <Eigen/Dense>
#include <gtest/gtest.h>

#include <random>

namespace {

using RowMat = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

RowMat Random(int r, int c, std::mt19937& rng)
{
    std::uniform_real_distribution<double> d(-1, 1);
    RowMat m(r, c);
    for (int i = 0; i < r; ++i)
        for (int j = 0; j < c; ++j)
            m(i, j) = d(rng);
    return m;
}

RowMat RandomOrthogonal(int n, std::mt19937& rng)
{
    Eigen::HouseholderQR<RowMat> qr(Random(n, n, rng));
    return qr.householderQ();
}

// Random n-by-n matrix with singular values spread log-evenly over [1/cond, 1].
RowMat WithCondition(int n, double cond, std::mt19937& rng, bool symmetric)
{
    Eigen::VectorXd s(n);
    for (int i = 0; i < n; ++i)
        s(i) = std::pow(cond, -double(i) / std::max(1, n - 1));
    const RowMat u = RandomOrthogonal(n, rng);
    const RowMat v = symmetric ? u : RandomOrthogonal(n, rng);
    return u * s.asDiagonal() * v.transpose();
}

double RelDiff(const RowMat& a, const RowMat& b) { return (a - b).norm() / b.norm(); }

struct Case
{
    int n;
    double cond;
};
const Case kCases[] = {{1, 1}, {4, 10}, {17, 1e3}, {64, 10}, {64, 1e5}, {200, 100}, {200, 1e4}};

} // namespace

TEST(LinearAlgebra, InverseMatchesEigen)
{
    std::mt19937 rng(1);
    for (const Case& c : kCases) {
        const RowMat a = WithCondition(c.n, c.cond, rng, false);
        RowMat copy = a, inv(c.n, c.n);
        double det = 0, piv = 0;
        EXPECT_EQ(TezMatrixInvert(c.n, copy.data(), inv.data(), det, piv), c.n);
        EXPECT_EQ(copy, a) << "input must be left alone";
        const RowMat ref = a.inverse();
        EXPECT_LT(RelDiff(inv, ref), 1e-9) << "n=" << c.n << " cond=" << c.cond;
        if (c.n <= 64) { // larger determinants underflow
            EXPECT_NEAR(det / a.determinant(), 1.0, 1e-9) << "n=" << c.n;
        }
        EXPECT_GT(piv, 0.0);
    }
}

TEST(LinearAlgebra, InverseRankPivotAndFloat)
{
    // Rank 2: the first row is twice the second, exactly cancelled.
    double a[9] = {2, 4, 8, 1, 2, 4, 1, 1, 1}, inv[9], det = 1, piv = 0;
    EXPECT_EQ(TezMatrixInvert(3, a, inv, det, piv), 2);
    EXPECT_EQ(det, 0.0);
    // Smallest pivot of a diagonal matrix is its smallest absolute entry.
    double d[9] = {4, 0, 0, 0, -0.5, 0, 0, 0, 2};
    EXPECT_EQ(TezMatrixInvert(3, d, inv, det, piv), 3);
    EXPECT_DOUBLE_EQ(piv, 0.5);
    EXPECT_DOUBLE_EQ(det, -4.0);
    EXPECT_DOUBLE_EQ(inv[4], -2.0);
    // Terms below 1e-6 of the first pivot are not eliminated.
    double t[4] = {1, 0, 1e-7, 1}, ti[4];
    TezMatrixInvert(2, t, ti, det, piv);
    EXPECT_EQ(ti[2], 0.0);

    std::mt19937 rng(5);
    const RowMat m = WithCondition(30, 10, rng, false);
    Eigen::MatrixXf mf = m.cast<float>(), fi(30, 30);
    Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor> mr = mf, ir(30, 30);
    float fd, fp;
    EXPECT_EQ(TezMatrixInvert(30, mr.data(), ir.data(), fd, fp), 30);
    EXPECT_LT((ir * mr - Eigen::MatrixXf::Identity(30, 30)).norm(), 1e-4f);
    EXPECT_THROW(TezMatrixInvert(-1, a, inv, det, piv), std::runtime_error);
}

TEST(LinearAlgebra, CholeskySolveMatchesEigen)
{
    std::mt19937 rng(2);
    for (const Case& c : kCases) {
        const RowMat a = WithCondition(c.n, c.cond, rng, true);
        const RowMat b = Random(c.n, 3, rng);
        const RowMat ref = a.llt().solve(b);
        for (int block : {1, 5, 32, 300}) {
            RowMat f = a, x = b;
            ASSERT_TRUE(TezMatrixCholeskySolveSystem(c.n, 3, f.data(), x.data(), block));
            EXPECT_LT(RelDiff(x, ref), 1e-9) << "n=" << c.n << " cond=" << c.cond << " block=" << block;
            // The factor sits in the lower triangle.
            const RowMat l = f.triangularView<Eigen::Lower>();
            EXPECT_LT(RelDiff(l * l.transpose(), a), 1e-12);
        }
        RowMat f = a;
        Eigen::VectorXd x = b.col(0);
        ASSERT_TRUE(TezMatrixCholeskySolveSystem(c.n, f.data(), x.data(), 16));
        EXPECT_LT((x - ref.col(0)).norm() / ref.col(0).norm(), 1e-9);
    }
}

TEST(LinearAlgebra, CholeskyRejectsIndefinite)
{
    EXPECT_TRUE(TezMatrixCholesky<double>(0, nullptr, 4));
    double a[4] = {1, 2, 2, 1};
    EXPECT_FALSE(TezMatrixCholesky(2, a, 4));
    // Indefinite only in the trailing part, reached after a block update.
    std::mt19937 rng(9);
    RowMat m = WithCondition(40, 10, rng, true);
    m(39, 39) = -1;
    EXPECT_FALSE(TezMatrixCholesky<double>(40, m.data(), 8));
    double b[2] = {1, 1};
    double z[4] = {0, 0, 0, 1};
    EXPECT_FALSE(TezMatrixCholeskySolveSystem(2, z, b, 2));
}

TEST(LinearAlgebra, SvdMatchesEigen)
{
    std::mt19937 rng(3);
    struct Shape
    {
        int rows, cols;
        double cond;
    };
    const Shape shapes[] = {{1, 1, 1},      {5, 3, 10},      {3, 5, 10},      {40, 40, 1e8},
                            {120, 60, 100}, {200, 200, 1e3}, {200, 200, 1e10}};
    for (const Shape& sh : shapes) {
        const int k = std::min(sh.rows, sh.cols);
        RowMat a;
        if (sh.rows == sh.cols) {
            a = WithCondition(sh.rows, sh.cond, rng, false);
        } else {
            a = Random(sh.rows, sh.cols, rng);
        }
        RowMat copy = a, u(sh.rows, k), v(sh.cols, k);
        Eigen::VectorXd s(k);
        ASSERT_TRUE(TezMatrixSVD<double>(sh.rows, sh.cols, copy.data(), s.data(), u.data(), v.data()));
        EXPECT_EQ(copy, a);
        Eigen::JacobiSVD<RowMat> ref(a);
        EXPECT_LT((s - ref.singularValues()).norm() / ref.singularValues().norm(), 1e-9) << sh.rows << "x" << sh.cols;
        for (int i = 1; i < k; ++i)
            EXPECT_GE(s(i - 1), s(i));
        EXPECT_LT(RelDiff(u * s.asDiagonal() * v.transpose(), a), 1e-12);
        EXPECT_LT((u.transpose() * u - RowMat::Identity(k, k)).norm(), 1e-12);
        EXPECT_LT((v.transpose() * v - RowMat::Identity(k, k)).norm(), 1e-12);
        // Values alone.
        Eigen::VectorXd s2(k);
        ASSERT_TRUE(TezMatrixSVD<double>(sh.rows, sh.cols, copy.data(), s2.data(), nullptr, nullptr));
        EXPECT_LT((s2 - s).norm(), 1e-12 * s.norm());
    }
    // Rank-deficient and float.
    RowMat r = Random(30, 4, rng) * Random(4, 20, rng);
    Eigen::VectorXd s(20);
    ASSERT_TRUE(TezMatrixSVD<double>(30, 20, r.data(), s.data(), nullptr, nullptr));
    EXPECT_LT(s(4), 1e-13 * s(0));
    Eigen::Matrix<float, 8, 6, Eigen::RowMajor> f = Eigen::Matrix<float, 8, 6, Eigen::RowMajor>::Random();
    Eigen::Matrix<float, 8, 6, Eigen::RowMajor> fu;
    Eigen::Matrix<float, 6, 6, Eigen::RowMajor> fv;
    Eigen::Matrix<float, 6, 1> fs;
    ASSERT_TRUE(TezMatrixSVD<float>(8, 6, f.data(), fs.data(), fu.data(), fv.data()));
    EXPECT_LT((fu * fs.asDiagonal() * fv.transpose() - f).norm(), 1e-5f * f.norm());
}

TEST(LinearAlgebra, SvdReportsNonConvergence)
{
    double a[4] = {1, std::nan(""), 0, 1}, s[2];
    EXPECT_FALSE(TezMatrixSVD<double>(2, 2, a, s, nullptr, nullptr));
}
