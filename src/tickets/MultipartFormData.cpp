// The ticket upload's multipart body. Its layout is the one the platform's server receives and is
// kept exactly: "Content-Type : " with a space before the colon, no space after the semicolon of a
// file part's disposition, "\r\n" after every part and another before the closing delimiter.

#include <memory>
#include <string>

#include <velora/tickets/Tickets.hpp>

namespace velora {
namespace {

class Writer {
 public:
  explicit Writer(std::string boundary) : boundary_(std::move(boundary)) {}

  /// A part whose bytes are shared, not copied.
  void filePart(std::string_view name, const std::string& fileName, std::string_view contentType,
                std::shared_ptr<const Bytes> bytes) {
    std::string head = "--" + boundary_ + "\r\n";
    head.append("Content-Disposition: form-data; name=\"").append(name).append("\";");
    head.append("filename=\"").append(fileName).append("\"\r\n");
    head.append("Content-Type : ").append(contentType).append("\r\n\r\n");
    body_.append(std::move(head));
    const std::string_view view(reinterpret_cast<const char*>(bytes->data()), bytes->size());
    body_.append(std::move(bytes), view);
    body_.append("\r\n");
  }

  void formPart(std::string json) {
    std::string part = "--" + boundary_ + "\r\n";
    part.append("Content-Disposition: form-data; name=\"form\"\r\n");
    part.append("Content-Type : application/json\r\n\r\n");
    part.append(json).append("\r\n");
    part.append("\r\n--").append(boundary_).append("--\r\n");
    body_.append(std::move(part));
  }

  MultipartFormData finish() && { return {std::move(body_), std::move(boundary_)}; }

 private:
  std::string boundary_;
  HttpBody body_;
};

MultipartFormData write(std::shared_ptr<const Bytes> image, std::shared_ptr<const Bytes> sound,
                        const std::vector<FormTicket>& form, const SaveTicketRequest::UUIDSource& uuid) {
  Writer writer(uuid());
  if (image) writer.filePart("image", uuid() + ".jpg", "image/jpeg", std::move(image));
  if (sound) writer.filePart("sound", uuid() + ".aac", "audio/x-aac", std::move(sound));
  // Forms hold only texts and flags, so encoding cannot fail (only a non-finite number can).
  writer.formPart(encodeJSON(form));
  return std::move(writer).finish();
}

std::shared_ptr<const Bytes> shared(const std::optional<Bytes>& bytes) {
  return bytes ? std::make_shared<const Bytes>(*bytes) : nullptr;
}
std::shared_ptr<const Bytes> shared(std::optional<Bytes>&& bytes) {
  return bytes ? std::make_shared<const Bytes>(std::move(*bytes)) : nullptr;
}

}  // namespace

MultipartFormData SaveTicketRequest::formData(const UUIDSource& uuid) const& {
  return write(shared(image), shared(sound), form, uuid);
}

MultipartFormData SaveTicketRequest::formData(const UUIDSource& uuid) && {
  return write(shared(std::move(image)), shared(std::move(sound)), form, uuid);
}

}  // namespace velora
