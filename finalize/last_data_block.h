#pragma once
// A logger that stops writing leaves the length of its last data block unset; the block then
// runs to the end of the file.
namespace qm {

class MdfFile;

// When flag bit 2 is set: stretches the data block with the greatest file position to the end
// of the input stream and clears the bit. With no data block there is nothing to stretch, and
// the bit is cleared all the same.
void fixLastDataBlockLength(MdfFile& file);

}  // namespace qm
