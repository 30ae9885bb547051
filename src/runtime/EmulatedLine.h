#pragma once

#include <QString>
#include <memory>
#include <string>

#include "platform/hostlink/HostLinkPhysicalLayer.h"

/// Opens a line on which this side listens, so that a line in use is found out before a worker takes it.
/// Waits until it listens, a few seconds at most; nullptr and *error when it cannot.
std::unique_ptr<HostLinkPhysicalLayer> openEmulatedLine(const std::string& type,
                                                        const HostLinkPhysicalLayer::Properties& properties,
                                                        QString* error);
