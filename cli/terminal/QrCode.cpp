#include "cli/terminal/QrCode.h"

#include "cli/terminal/Failure.h"

#include <qrencode.h>

#include <memory>

namespace tarncli {

std::string qrCode(const std::string& text, bool colours)
{
    constexpr int anyVersion = 0;
    const std::unique_ptr<QRcode, decltype(&QRcode_free)> code(
        QRcode_encodeString8bit(text.c_str(), anyVersion, QR_ECLEVEL_L), &QRcode_free);
    if (!code) throw Failure(ExitCode::failure, "The link is too long for a QR code.");
    const auto isLight = [&](int row, int column) {
        const bool inside = row >= 0 && column >= 0 && row < code->width && column < code->width;
        return !inside || (code->data[row * code->width + column] & 1) == 0;
    };
    constexpr int border = 2; // readers need some of it, and every line of a terminal counts
    std::string drawn;
    for (int row = -border; row < code->width + border; row += 2) {
        if (colours) drawn += "\033[97;40m";
        for (int column = -border; column < code->width + border; ++column) {
            const bool upper = isLight(row, column), lower = isLight(row + 1, column);
            drawn += upper ? (lower ? "█" : "▀") : (lower ? "▄" : " ");
        }
        drawn += colours ? "\033[0m\n" : "\n";
    }
    return drawn;
}

} // namespace tarncli
