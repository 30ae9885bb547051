#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "services/SettingsFile.h"

/// Saves settings that all hold one number, the next number each time, until it is killed; tells each number
/// on standard output (8 bytes) once its save has returned. Usage: settings_writer FILE FIRST-NUMBER
int main(int, char** argv)
{
    constexpr int kCount = 30;
    constexpr int kTextSize = 4000; // so that a save takes a while
    SettingsFile file(argv[1]);
    QString error;
    for (qint64 number = std::atoll(argv[2]);; ++number) {
        SettingsFile::Values values;
        for (int node = 0; node < kCount; ++node) {
            values.insert(CMPath("/test/" + QString::number(node)),
                          VornValue().setString(QString::number(number).rightJustified(kTextSize, ' ')));
        }
        if (!file.save(values, &error)) {
            std::cerr << error.toStdString() << std::endl;
            return EXIT_FAILURE;
        }
        if (::write(STDOUT_FILENO, &number, sizeof number) != sizeof number) {
            return EXIT_FAILURE;
        }
    }
}
