// Geometry and numerics: small-matrix inverse, dense Cholesky and SVD, NURBS
// evaluation. With TEZ_PEER_BENCH the Eigen equivalents run beside them.
#include "math/LinearAlgebra.h"
#include "math/Matrix.h"
#include "math/NurbsCurve.h"
#include "math/NurbsSurface.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#if TEZ_PEER_BENCH
#    include <Eigen/Dense>
#    include <Eigen/SVD>
#endif

namespace {

std::vector<double> RandomMatrix(int rows, int cols, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> d(-1, 1);
    std::vector<double> m(static_cast<size_t>(rows) * cols);
    for (double& v : m)
        v = d(rng);
    return m;
}

// Symmetric positive definite: B B^T + n I.
std::vector<double> RandomSpd(int n, unsigned seed)
{
    const std::vector<double> b = RandomMatrix(n, n, seed);
    std::vector<double> a(static_cast<size_t>(n) * n, 0.0);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j <= i; ++j) {
            double s = 0;
            for (int k = 0; k < n; ++k)
                s += b[i * n + k] * b[j * n + k];
            a[i * n + j] = a[j * n + i] = s + (i == j ? n : 0);
        }
    return a;
}

// ------------------------------------------------------------------ 4x4 inverse

void BM_Tez_Inverse4x4(benchmark::State& state)
{
    const std::vector<double> src = RandomMatrix(4, 4, 1);
    TezMatrix44<double> m;
    m.FromArray(src.data());
    for (auto _ : state) {
        benchmark::DoNotOptimize(m);
        TezMatrix44<double> r = m.Inverse();
        benchmark::DoNotOptimize(r);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Tez_Inverse4x4);

// ------------------------------------------------------------------ Cholesky

void BM_Tez_Cholesky(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> a = RandomSpd(n, 2);
    std::vector<double> work(a.size());
    for (auto _ : state) {
        work = a;
        const bool ok = TezMatrixCholesky<double>(n, work.data(), 48);
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(work.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Tez_Cholesky)->Arg(200)->Unit(benchmark::kMicrosecond);

void BM_Tez_CholeskySolve(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> a = RandomSpd(n, 2), b = RandomMatrix(n, 1, 3);
    std::vector<double> work(a.size()), x(b.size());
    for (auto _ : state) {
        work = a;
        x = b;
        const bool ok = TezMatrixCholeskySolveSystem<double>(n, work.data(), x.data(), 48);
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(x.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Tez_CholeskySolve)->Arg(200)->Unit(benchmark::kMicrosecond);

// ------------------------------------------------------------------ SVD

void BM_Tez_SVD(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    std::vector<double> a = RandomMatrix(n, n, 4);
    std::vector<double> s(n), u(static_cast<size_t>(n) * n), v(static_cast<size_t>(n) * n);
    for (auto _ : state) {
        const bool ok = TezMatrixSVD<double>(n, n, a.data(), s.data(), u.data(), v.data());
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(u.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Tez_SVD)->Arg(200)->Unit(benchmark::kMillisecond);

void BM_Tez_SVDValuesOnly(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    std::vector<double> a = RandomMatrix(n, n, 4);
    std::vector<double> s(n);
    for (auto _ : state) {
        const bool ok = TezMatrixSVD<double>(n, n, a.data(), s.data(), nullptr, nullptr);
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(s.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Tez_SVDValuesOnly)->Arg(200)->Unit(benchmark::kMillisecond);

// ------------------------------------------------------------------ NURBS

TezNurbsCurve3<double> BenchCurve(int degree, int n)
{
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> d(-1, 1), w(0.5, 2);
    std::vector<TezVector3<double>> p;
    std::vector<double> ws;
    for (int i = 0; i < n; ++i) {
        p.emplace_back(d(rng), d(rng), d(rng));
        ws.push_back(w(rng));
    }
    TezNurbsCurve3<double> c;
    c.Initialize(degree, p, ws, {});
    return c;
}

void BM_Tez_NurbsCurveEvaluate(benchmark::State& state)
{
    const TezNurbsCurve3<double> c = BenchCurve(static_cast<int>(state.range(0)), 64);
    const int samples = 1024;
    for (auto _ : state) {
        TezVector3<double> acc(0, 0, 0);
        for (int i = 0; i < samples; ++i)
            acc += c.Evaluate(i / double(samples - 1));
        benchmark::DoNotOptimize(acc);
    }
    state.SetItemsProcessed(state.iterations() * samples);
}
BENCHMARK(BM_Tez_NurbsCurveEvaluate)->Arg(3)->Arg(5);

void BM_Tez_NurbsCurveDerivatives(benchmark::State& state)
{
    const TezNurbsCurve3<double> c = BenchCurve(3, 64);
    const int samples = 1024;
    TezVector3<double> d[3];
    for (auto _ : state) {
        for (int i = 0; i < samples; ++i) {
            c.Derivatives(i / double(samples - 1), 2, d);
            benchmark::DoNotOptimize(d);
        }
    }
    state.SetItemsProcessed(state.iterations() * samples);
}
BENCHMARK(BM_Tez_NurbsCurveDerivatives);

void BM_Tez_NurbsSurfaceEvaluate(benchmark::State& state)
{
    const int deg = static_cast<int>(state.range(0));
    TezNurbsSurface3<double> s;
    s.Initialize(16, 16, deg, deg);
    std::mt19937 rng(6);
    std::uniform_real_distribution<double> d(-1, 1), w(0.5, 2);
    for (int i = 0; i < 16; ++i)
        for (int j = 0; j < 16; ++j) {
            s.SetControlPoint(i, j, TezVector3<double>(i, j, d(rng)));
            s.SetWeight(i, j, w(rng));
        }
    const int grid = 32;
    for (auto _ : state) {
        TezVector3<double> acc(0, 0, 0);
        for (int i = 0; i < grid; ++i)
            for (int j = 0; j < grid; ++j)
                acc += s.Evaluate(i / double(grid - 1), j / double(grid - 1));
        benchmark::DoNotOptimize(acc);
    }
    state.SetItemsProcessed(state.iterations() * grid * grid);
}
BENCHMARK(BM_Tez_NurbsSurfaceEvaluate)->Arg(3);

#if TEZ_PEER_BENCH

using RowMat = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

void BM_Eigen_Inverse4x4Dynamic(benchmark::State& state)
{
    const std::vector<double> src = RandomMatrix(4, 4, 1);
    const Eigen::MatrixXd m = Eigen::Map<const RowMat>(src.data(), 4, 4);
    for (auto _ : state) {
        benchmark::DoNotOptimize(m.data());
        Eigen::MatrixXd r = m.inverse();
        benchmark::DoNotOptimize(r.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Eigen_Inverse4x4Dynamic);

void BM_Eigen_Inverse4x4Fixed(benchmark::State& state)
{
    const std::vector<double> src = RandomMatrix(4, 4, 1);
    const Eigen::Matrix4d m = Eigen::Map<const Eigen::Matrix<double, 4, 4, Eigen::RowMajor>>(src.data());
    for (auto _ : state) {
        benchmark::DoNotOptimize(m);
        Eigen::Matrix4d r = m.inverse();
        benchmark::DoNotOptimize(r);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Eigen_Inverse4x4Fixed);

void BM_Eigen_Cholesky(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> src = RandomSpd(n, 2);
    const Eigen::MatrixXd a = Eigen::Map<const RowMat>(src.data(), n, n);
    Eigen::MatrixXd work(n, n);
    Eigen::LLT<Eigen::MatrixXd> llt(n);
    for (auto _ : state) {
        work = a;
        llt.compute(work);
        benchmark::DoNotOptimize(llt.matrixLLT().data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Eigen_Cholesky)->Arg(200)->Unit(benchmark::kMicrosecond);

void BM_Eigen_CholeskySolve(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> src = RandomSpd(n, 2), bs = RandomMatrix(n, 1, 3);
    const Eigen::MatrixXd a = Eigen::Map<const RowMat>(src.data(), n, n);
    const Eigen::VectorXd b = Eigen::Map<const Eigen::VectorXd>(bs.data(), n);
    Eigen::LLT<Eigen::MatrixXd> llt(n);
    Eigen::VectorXd x(n);
    for (auto _ : state) {
        llt.compute(a);
        x = llt.solve(b);
        benchmark::DoNotOptimize(x.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Eigen_CholeskySolve)->Arg(200)->Unit(benchmark::kMicrosecond);

void BM_Eigen_BDCSVD(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> src = RandomMatrix(n, n, 4);
    const Eigen::MatrixXd a = Eigen::Map<const RowMat>(src.data(), n, n);
    for (auto _ : state) {
        Eigen::BDCSVD<Eigen::MatrixXd> svd(a, Eigen::ComputeThinU | Eigen::ComputeThinV);
        benchmark::DoNotOptimize(svd.matrixU().data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Eigen_BDCSVD)->Arg(200)->Unit(benchmark::kMillisecond);

void BM_Eigen_JacobiSVD(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> src = RandomMatrix(n, n, 4);
    const Eigen::MatrixXd a = Eigen::Map<const RowMat>(src.data(), n, n);
    for (auto _ : state) {
        Eigen::JacobiSVD<Eigen::MatrixXd> svd(a, Eigen::ComputeThinU | Eigen::ComputeThinV);
        benchmark::DoNotOptimize(svd.matrixU().data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Eigen_JacobiSVD)->Arg(200)->Unit(benchmark::kMillisecond);

void BM_Eigen_BDCSVDValuesOnly(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> src = RandomMatrix(n, n, 4);
    const Eigen::MatrixXd a = Eigen::Map<const RowMat>(src.data(), n, n);
    for (auto _ : state) {
        Eigen::BDCSVD<Eigen::MatrixXd> svd(a);
        benchmark::DoNotOptimize(svd.singularValues().data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Eigen_BDCSVDValuesOnly)->Arg(200)->Unit(benchmark::kMillisecond);

#endif

} // namespace
