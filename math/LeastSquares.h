#pragma once
// Polynomial least squares fit of y over x by the normal equations.

#include "platform/Api.h"

#include <vector>

class TEZ_API TezLeastSquares1D
{
public:
    // Fits y ~ sum_i coefficients[i] x^i for i = 0..degree. Returns false
    // (coefficients left empty) for a singular system, mismatched inputs or a
    // negative degree; a pivot below 1e-80 counts as zero.
    static bool LeastSquaresFit(int degree, std::vector<double>& x, std::vector<double>& y,
                                std::vector<double>& coefficients);

private:
    // Solves the (n x n+1) augmented system in place by elimination with
    // partial pivoting.
    static bool CalcCoeff(int n, std::vector<double>& augmented, std::vector<double>& coefficients);
};
