#pragma once
// TEZ_HOSTDEV marks a function that runs on the host and, compiled by nvcc,
// on the device as well: small helpers on plain data shared by the host code
// and the kernels.

#if defined(__CUDACC__)
#    define TEZ_HOSTDEV __host__ __device__
#else
#    define TEZ_HOSTDEV
#endif
