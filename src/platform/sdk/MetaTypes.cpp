#include "platform/sdk/MetaTypes.h"

#include <QVariantHash>

#include "platform/sdk/CMError.h"
#include "platform/sdk/CMPath.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/VornRoles.h"
#include "platform/sdk/VornValue.h"

namespace
{
template <typename Record>
void registerRecord(const char* name)
{
    qRegisterMetaType<Record>(name);
    QMetaType::registerConverter<Record, QVariantHash>(
        [](const Record& record) { return static_cast<const QVariantHash&>(record); });
}

bool registerAll()
{
    registerRecord<VornHash>("VornHash");
    registerRecord<VornValue>("VornValue");
    registerRecord<VornRoles>("VornRoles");
    qRegisterMetaType<CMError>("CMError");
    qRegisterMetaType<CMSetDataRequest>("CMSetDataRequest");
    qRegisterMetaType<State>("State");
    qRegisterMetaType<QList<State>>("QList<State>");
    qRegisterMetaType<CMPath>("CMPath");
    return QMetaType::registerConverter<CMPath, QString>([](const CMPath& path) { return path.toString(); });
}

// Variants with records are read as hashes in every program that has the library, asked or not.
const bool registered = registerAll();
} // namespace

void registerSdkMetaTypes()
{
    static_cast<void>(registered);
}
