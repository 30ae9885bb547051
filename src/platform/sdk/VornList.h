#pragma once

#include <QList>
#include <type_traits>

/// A list of records; a hash holds it as a list of hashes.
template <typename T>
class VornList : public QList<T>
{
public:
    using QList<T>::QList;
};

template <typename T>
struct IsVornList : std::false_type {
};
template <typename T>
struct IsVornList<VornList<T>> : std::true_type {
};
