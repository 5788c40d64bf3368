#include "tools/cli/raster_file.h"

namespace planex::tools {

RasterFile::RasterFile(const std::string& path, const char* content, int width, int height,
                       cmnalg::ImageType type, const Context& context,
                       const io::RasterEncoding& encoding)
    : content_(content), file_(path, context.force) {
  io::RasterDescription description;
  description.width = width;
  description.height = height;
  description.sample =
      type == cmnalg::IMAGE_TYPE_UINT8 ? io::SampleType::kUint8 : io::SampleType::kUint16;
  description.layers = {content};
  description.missing = 0;
  writer_ = io::RasterWriter::create(*io::rasterFormatOf(path), file_, description, encoding);
}

void RasterFile::finish(OutputSidecar& sidecar) {
  writer_->finish();
  sidecar.addOutput(content_, file_.path(), file_.size());
}

}  // namespace planex::tools
