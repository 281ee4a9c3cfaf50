# SPDX-License-Identifier: Apache-2.0
# Turns the built-in board file into a C++ source: embed.py INPUT OUTPUT
import sys

with open(sys.argv[1], 'rb') as source:
    data = source.read()
rows = [', '.join(f"'\\x{byte:02x}'" for byte in data[at:at + 16]) for at in range(0, len(data), 16)]
with open(sys.argv[2], 'w', encoding='ascii') as out:
    out.write('// SPDX-License-Identifier: Apache-2.0\n')
    out.write('// The built-in board file, made by embed.py.\n')
    out.write('#include "sim/board/board.h"\n\nstatic constexpr char kFile[] = {\n')
    out.write(',\n'.join('    ' + row for row in rows))
    out.write('};\n\nstd::string_view sim::Board::built_in_file() {\n')
    out.write('    return {kFile, sizeof kFile};\n}\n')
