#pragma once

#include <QByteArray>
#include <QString>

/// Makes `content` the file at `path`, readable by its owner alone. Whatever ends the process or the power
/// meanwhile, the path holds either the file that was there or the whole new one; on return the new one is
/// on the disk. It is written as PATH.new first.
///
/// Otherwise *error says what failed, and unless that was the very last step, to make the new name
/// durable, the file is as it was.
bool replaceFile(const QString& path, const QByteArray& content, QString* error);
