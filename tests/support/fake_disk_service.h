#pragma once

#include <QDBusVirtualObject>
#include <QList>
#include <QMutex>
#include <QThread>
#include <QVariantMap>

#include <atomic>

/// One device of the fake disk service and how it answers the question for its properties.
struct FakeDevice {
    QString name; ///< The last part of its object path.
    QVariantMap properties;
    QString error;        ///< Unless empty the answer is an error with this message.
    QVariant wrongType;   ///< When valid the answer is this instead of a map.
    int delayMs = 0;      ///< The answer takes this long.
    QString mountError{}; ///< Unless empty mounting and unmounting fail with this message.
    QString mountPath{};  ///< Where mounting mounts it.

    /// The same device with one property changed; an invalid value takes it away.
    [[nodiscard]] FakeDevice with(const char* property, const QVariant& value) const;
};

/// A drive "/dev/NAME" of 500 GB with the model "Model NAME", and a FAT32 partition
/// "/dev/NAME" of 1 GB with the label "DATA".
[[nodiscard]] FakeDevice fake_drive(const char* name);
[[nodiscard]] FakeDevice fake_partition(const char* name);

/// A disk service that says what a test wants, at first that there are no devices. It answers
/// in its own thread: whoever asks blocks until the answer comes.
class FakeDiskService : public QDBusVirtualObject {
    Q_OBJECT

public:
    explicit FakeDiskService(const QString& busAddress);
    ~FakeDiskService() override;

    void setDevices(const QList<FakeDevice>& devices)
    {
        const QMutexLocker lock(&mutex_);
        devices_ = devices;
    }
    /// The answer to the question for all devices: an error with this message unless empty,
    /// else this value unless invalid, else the devices.
    void setEnumeration(const QString& error, const QVariant& wrongType)
    {
        const QMutexLocker lock(&mutex_);
        enumerationError_ = error;
        enumerationWrongType_ = wrongType;
    }
    /// How often all devices were asked for.
    [[nodiscard]] int enumerations() const { return enumerations_; }

    [[nodiscard]] QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

private:
    [[nodiscard]] QDBusMessage answerEnumeration(const QDBusMessage& question);
    [[nodiscard]] static QDBusMessage answerProperties(const QDBusMessage& question,
                                                       const FakeDevice& asked);
    [[nodiscard]] static QDBusMessage answerOperation(const QDBusMessage& call, FakeDevice& asked);

    QMutex mutex_;
    QList<FakeDevice> devices_;
    QString enumerationError_;
    QVariant enumerationWrongType_;
    std::atomic<int> enumerations_ = 0;
    QThread thread_;
};
