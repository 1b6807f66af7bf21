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

// What the String method `method` of `className` returns for `object`: nullopt for null, and
// "<method threw>" when it threw.
std::optional<std::string> callStringMethod(JNIEnv* env, jobject object, const char* className,
                                            const char* method) {
    jclass clazz = env->FindClass(className);
    jmethodID id = env->GetMethodID(clazz, method, "()Ljava/lang/String;");
    auto value = static_cast<jstring>(env->CallObjectMethod(object, id));
    bool threw = env->ExceptionCheck();
    env->DeleteLocalRef(clazz);
    if (threw) {
        env->ExceptionClear();
        return "<" + std::string(method) + " threw>";
    }
    std::optional<std::string> text = toStdString(env, value);
    env->DeleteLocalRef(value);
    return text;
}

}  // namespace

std::optional<JavaException> takePendingException(JNIEnv* env) {
    jthrowable pending = env->ExceptionOccurred();
    if (pending == nullptr) return std::nullopt;
    env->ExceptionClear();
    jclass exceptionClass = env->GetObjectClass(pending);
    JavaException exception{
            callStringMethod(env, exceptionClass, "java/lang/Class", "getName").value_or(""),
            callStringMethod(env, pending, "java/lang/Throwable", "getMessage")};
    env->DeleteLocalRef(exceptionClass);
    env->DeleteLocalRef(pending);
    return exception;
}

std::string describe(const JavaException& exception) {
    return exception.message ? exception.className + ": " + *exception.message
                             : exception.className;
}

void expectPending(JNIEnv* env, const std::string& expected) {
    std::optional<JavaException> pending = takePendingException(env);
    EXPECT_EQ(pending ? describe(*pending) : "", expected);
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
    // A local frame of the size of ART's local reference table: what a native method may hold on
    // a device. A failed push leaves its OutOfMemoryError pending, which TearDown reports.
    mFramePushed = env->PushLocalFrame(512) == JNI_OK;
}

void JniTest::TearDown() {
    if (env == nullptr) return;
    if (std::optional<JavaException> pending = takePendingException(env)) {
        ADD_FAILURE() << "the test ended with a pending Java exception: " << describe(*pending);
    }
    if (mFramePushed) env->PopLocalFrame(nullptr);
}

}  // namespace nuvra::test
