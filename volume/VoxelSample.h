#pragma once
// TezVoxelSample: the stored sample types that the file-backed volume
// sources read. Signed samples are delivered shifted by half their range
// (int8 + 128, int16 + 32768), which keeps the order of values.

enum class TezVoxelSample { UInt8, Int8, UInt16, Int16 };

inline int TezVoxelSampleBytes(TezVoxelSample sample)
{
    return sample == TezVoxelSample::UInt8 || sample == TezVoxelSample::Int8 ? 1 : 2;
}
