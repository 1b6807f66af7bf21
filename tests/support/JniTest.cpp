// The JniTest fixture and its JNI helpers.

#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/FaultInjection.h>
#include <hostcontrol/LogCapture.h>
#include <hostjvm/Jvm.h>
#include <hostproperties/HostProperties.h>
#include <testsupport/JniTest.h>
#include <ui/HostPlaneLayouts.h>

namespace nuvra::test {
namespace {

// The device profile selected when the process started, before any test could switch it.
const std::string& startProfile() {
    static const std::string name = host::currentDeviceProfile().name;
    return name;
}
[[maybe_unused]] const std::string& gStartProfile = startProfile();

std::string callStringMethod(JNIEnv* env, jobject object, const char* className, const char* method,
                             bool* isNull) {
    jclass clazz = env->FindClass(className);
    jmethodID id = env->GetMethodID(clazz, method, "()Ljava/lang/String;");
    auto value = static_cast<jstring>(env->CallObjectMethod(object, id));
    bool threw = env->ExceptionCheck();
    env->DeleteLocalRef(clazz);
    if (threw) {
        env->ExceptionClear();
        *isNull = true;
        return "<" + std::string(method) + " threw>";
    }
    std::optional<std::string> text = toStdString(env, value);
    env->DeleteLocalRef(value);
    *isNull = !text.has_value();
    return text.value_or("");
}

}  // namespace

std::optional<JavaException> takePendingException(JNIEnv* env) {
    jthrowable pending = env->ExceptionOccurred();
    if (pending == nullptr) return std::nullopt;
    env->ExceptionClear();

    JavaException exception;
    bool isNull = false;
    jclass exceptionClass = env->GetObjectClass(pending);
    exception.className =
            callStringMethod(env, exceptionClass, "java/lang/Class", "getName", &isNull);
    env->DeleteLocalRef(exceptionClass);
    std::string message =
            callStringMethod(env, pending, "java/lang/Throwable", "getMessage", &isNull);
    if (!isNull) exception.message = message;
    env->DeleteLocalRef(pending);
    return exception;
}

std::string describe(const JavaException& exception) {
    return exception.message ? exception.className + ": " + *exception.message
                             : exception.className;
}

LocalFrame::LocalFrame(JNIEnv* env, jint capacity) : mEnv(env) {
    if (mEnv->PushLocalFrame(capacity) != JNI_OK) {
        mEnv->ExceptionClear();
        ADD_FAILURE() << "PushLocalFrame(" << capacity << ") failed";
        mEnv = nullptr;
    }
}

LocalFrame::~LocalFrame() {
    if (mEnv != nullptr) mEnv->PopLocalFrame(nullptr);
}

std::optional<std::string> toStdString(JNIEnv* env, jstring string) {
    if (string == nullptr) return std::nullopt;
    const char* chars = env->GetStringUTFChars(string, nullptr);
    if (chars == nullptr) {
        env->ExceptionClear();
        return std::nullopt;
    }
    std::string text(chars);
    env->ReleaseStringUTFChars(string, chars);
    return text;
}

void resetHostPlatform() {
    host::resetFaultsAndCalls();
    host::clearCapturedLogs();
    host::clearPlaneLayoutOverride();
    host::resetProperties();
    // As at process start: a board named in HOST_PROPERTIES wins over the profile's board.
    std::optional<std::string> board = host::getProperty("ro.board.platform");
    host::selectDeviceProfile(startProfile());
    if (board) host::setProperty("ro.board.platform", *board);
}

void JniTest::SetUp() {
    env = host::jniEnv();
    ASSERT_NE(env, nullptr) << "the JVM is not running: link nuvra_test_support's main";
    resetHostPlatform();
    // The size of ART's local reference table: what a native method may hold on a device.
    mFrame.emplace(env, 512);
}

void JniTest::TearDown() {
    if (env == nullptr) return;
    if (std::optional<JavaException> pending = takePendingException(env)) {
        ADD_FAILURE() << "the test ended with a pending Java exception: " << describe(*pending);
    }
    mFrame.reset();
}

}  // namespace nuvra::test
