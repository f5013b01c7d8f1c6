#include "mdf/mdf_file.h"

#include "mdf/block_factory.h"
#include "mdf/header_block.h"
#include "mdf/id_block.h"
#include "mdf/load_context.h"
#include "mdf/load_hooks.h"
#include "mdf/save_context.h"

namespace qm {

std::unique_ptr<MdfFile> MdfFile::open(Stream* stream, LoadHooks* hooks, Failure* why) {
  if (!stream) return fail(why, {FailureReason::kNotMdf, 0});
  std::unique_ptr<MdfFile> file(new MdfFile(stream));
  {
    // The cache lives only for the load; the tree holds its blocks afterwards.
    LoadContext ctx(stream, hooks);
    BlockRef root = loadSingle(ctx, stream, 0);
    IdBlock* id = blockAs<IdBlock>(root);
    if (!id) return fail(why, {streamSize(stream) == 0 ? FailureReason::kEmptyFile : FailureReason::kNotMdf, 0});
    BlockRef header = loadSingle(ctx, stream, kHeaderBlockOffset);
    if (!blockAs<HeaderBlock>(header)) return fail(why, {FailureReason::kMdfUnreadable, 0});
    id->header_block = std::move(header);
    file->root_ = std::move(root);
  }
  if (hooks) hooks->fileOpened(*file);
  return file;
}

bool MdfFile::save(Stream* output) {
  if (!output || !root_) return false;
  SaveContext ctx;
  ctx.stream = output;
  return saveBlock(root_.get(), ctx, nullptr) != 0;
}

IdBlock* MdfFile::id() const { return blockAs<IdBlock>(root_); }

HeaderBlock* MdfFile::header() const {
  IdBlock* root = id();
  return root ? root->header() : nullptr;
}

BlockList* MdfFile::dataGroups() const {
  HeaderBlock* hd = header();
  return hd ? &hd->data_groups : nullptr;
}

}  // namespace qm
