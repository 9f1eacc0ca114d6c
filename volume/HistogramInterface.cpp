#include "volume/HistogramInterface.h"

TezHistogramInterface::TezHistogramInterface() = default;

TezHistogramInterface::TezHistogramInterface(TezHistogramInterface const& other) : TezRefCounter(other) {}

TezHistogramInterface& TezHistogramInterface::operator=(TezHistogramInterface const& other)
{
    TezRefCounter::operator=(other);
    return *this;
}

TezHistogramInterface::~TezHistogramInterface() = default;
