#pragma once

/// Makes the files of this library's resources (":/...") known; a static library's are not by themselves.
void initServiceResources();
