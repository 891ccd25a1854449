#include "tests/support/model_drive.h"

#include <cstring>
#include <utility>

namespace {

constexpr char kOld = '\xee';

} // namespace

ModelDrive::ModelDrive(std::uint64_t sectorCount, std::uint32_t sectorBytes, Faults faults)
    : sectorBytes_(sectorBytes), faults_(std::move(faults)),
      content_(sectorCount * sectorBytes, kOld),
      lastWrites_(faults_.cachedSectors == 0 ? 0 : sectorCount),
      cacheSectors_(faults_.cachedSectors), cache_(faults_.cachedSectors * sectorBytes)
{
}

void ModelDrive::start(const IoRequest& request, bool /*alone*/)
{
    results_.push_back(transfer(request));
}

ssize_t ModelDrive::finishOldest()
{
    const ssize_t result = results_.front();
    results_.pop_front();
    return result;
}

ssize_t ModelDrive::transfer(const IoRequest& request)
{
    if (const int error = faults_.error ? faults_.error(request) : 0; error != 0) {
        return -error;
    }
    for (std::size_t done = 0; done < request.lengthBytes; done += sectorBytes_) {
        const std::uint64_t sector = (request.offsetBytes + done) / sectorBytes_;
        if (request.access == TargetDevice::Access::Write) {
            write(sector, request.memory + done);
        } else {
            read(sector, request.memory + done);
        }
    }
    return static_cast<ssize_t>(request.lengthBytes);
}

std::uint64_t ModelDrive::placeOf(std::uint64_t sector) const
{
    return faults_.place ? faults_.place(sector) : sector;
}

void ModelDrive::write(std::uint64_t sector, const char* data)
{
    if (cacheSectors_.empty()) {
        put(sector, data);
        return;
    }
    const std::uint64_t slot = writes_ % cacheSectors_.size();
    char* const cached = cache_.data() + slot * sectorBytes_;
    if (writes_ >= cacheSectors_.size()) {
        put(cacheSectors_[slot], cached);
    }
    std::memcpy(cached, data, sectorBytes_);
    cacheSectors_[slot] = sector;
    lastWrites_[sector] = ++writes_;
}

void ModelDrive::read(std::uint64_t sector, char* data) const
{
    const std::uint64_t last = lastWrites_.empty() ? 0 : lastWrites_[sector];
    const std::uint64_t place = placeOf(sector);
    if (last != 0 && last + cacheSectors_.size() > writes_) {
        const std::uint64_t slot = (last - 1) % cacheSectors_.size();
        std::memcpy(data, cache_.data() + slot * sectorBytes_, sectorBytes_);
    } else if (place * sectorBytes_ < content_.size()) {
        std::memcpy(data, content_.data() + place * sectorBytes_, sectorBytes_);
    } else {
        std::memset(data, kOld, sectorBytes_);
    }
}

void ModelDrive::put(std::uint64_t sector, const char* data)
{
    const std::uint64_t place = placeOf(sector);
    if (place * sectorBytes_ < content_.size()) {
        std::memcpy(content_.data() + place * sectorBytes_, data, sectorBytes_);
    }
}
