// Java Surface lookup and the throwing of Java exceptions, through the real JVM.

#include <android/log.h>
#include <gtest/gtest.h>
#include <hostcontrol/FaultInjection.h>

#include <string>

#include "LibraryTestSupport.h"
#include "surface/JniSupport.h"
#include "testsupport/JniTest.h"

namespace nuvra::test {
namespace {

class JniSupportTest : public JniTest {
protected:
    // A Java android.view.Surface that has no native object (never attached, or released).
    jobject emptyJavaSurface() {
        jclass cls = env->FindClass("android/view/Surface");
        EXPECT_NE(cls, nullptr);
        jmethodID ctor = env->GetMethodID(cls, "<init>", "()V");
        return env->NewObject(cls, ctor);
    }

    void throwNew(const char* className, const char* message) {
        jclass cls = env->FindClass(className);
        ASSERT_NE(cls, nullptr);
        if (message != nullptr) {
            ASSERT_EQ(env->ThrowNew(cls, message), 0);
        } else {
            jmethodID ctor = env->GetMethodID(cls, "<init>", "()V");
            ASSERT_EQ(env->Throw(static_cast<jthrowable>(env->NewObject(cls, ctor))), 0);
        }
    }

    // The one pending exception, which must be of `className` with `message`.
    void expectOnlyPending(const std::string& className, std::optional<std::string> message) {
        std::optional<JavaException> e = takePendingException(env);
        ASSERT_TRUE(e.has_value()) << "no exception pending";
        EXPECT_EQ(e->className, className);
        EXPECT_EQ(e->message, message);
        EXPECT_FALSE(env->ExceptionCheck());
    }
};

TEST_F(JniSupportTest, NullSurfaceThrowsNullPointerException) {
    EXPECT_EQ(getNativeWindow(env, nullptr), nullptr);
    expectOnlyPending("java.lang.NullPointerException", "surface");
    EXPECT_EQ(getSurface(env, nullptr), nullptr);
    expectOnlyPending("java.lang.NullPointerException", "surface");
    EXPECT_EQ(host::callCount("jni.android_view_Surface_getNativeWindow"), 0u);
}

TEST_F(JniSupportTest, SurfaceWithoutNativeObjectThrowsIllegalArgumentException) {
    jobject surface = emptyJavaSurface();
    EXPECT_EQ(getNativeWindow(env, surface), nullptr);
    expectOnlyPending("java.lang.IllegalArgumentException", "Surface had no valid native window.");
    EXPECT_EQ(getSurface(env, surface), nullptr);
    expectOnlyPending("java.lang.IllegalArgumentException", "Surface had no valid native Surface.");
    // Nothing was discarded on the way.
    EXPECT_TRUE(logTexts(kJniHelpTag, ANDROID_LOG_WARN).empty());
}

TEST_F(JniSupportTest, ExceptionFromThePlatformGlueIsLeftAsItIs) {
    jobject surface = emptyJavaSurface();
    host::injectFault("jni.android_view_Surface_getNativeWindow", -1);
    EXPECT_EQ(getNativeWindow(env, surface), nullptr);
    expectOnlyPending("java.lang.IllegalStateException", "injected fault");
    host::injectFault("jni.android_view_Surface_getSurface", -1);
    EXPECT_EQ(getSurface(env, surface), nullptr);
    expectOnlyPending("java.lang.IllegalStateException", "injected fault");
}

// The message string is made before the pending exception: making it while an exception is
// pending would itself be a JNI misuse.
TEST_F(JniSupportTest, PendingExceptionIsDiscardedWithItsSummary) {
    jstring message = env->NewStringUTF("bad 7");
    throwNew("java/lang/IllegalStateException", "m");
    EXPECT_EQ(android::jnihelp::ThrowException(env, "java/lang/IllegalArgumentException",
                                               "(Ljava/lang/String;)V", message),
              0);
    expectOnlyPending("java.lang.IllegalArgumentException", "bad 7");
    EXPECT_EQ(logTexts(kJniHelpTag, ANDROID_LOG_WARN),
              std::vector<std::string>{"Discarding pending exception "
                                       "(java.lang.IllegalStateException: m) to throw "
                                       "java/lang/IllegalArgumentException"});
}

TEST_F(JniSupportTest, PendingExceptionWithoutMessageIsSummarisedByItsClass) {
    jstring message = env->NewStringUTF("pixels");
    throwNew("java/lang/UnsupportedOperationException", nullptr);
    android::jnihelp::ThrowException(env, "java/lang/NullPointerException", "(Ljava/lang/String;)V",
                                     message);
    expectOnlyPending("java.lang.NullPointerException", "pixels");
    EXPECT_EQ(logTexts(kJniHelpTag, ANDROID_LOG_WARN),
              std::vector<std::string>{"Discarding pending exception "
                                       "(java.lang.UnsupportedOperationException) to throw "
                                       "java/lang/NullPointerException"});
}

TEST_F(JniSupportTest, LongMessageIsCutTo511Characters) {
    std::string text(600, 'x');
    text[510] = 'y';
    EXPECT_EQ(jniThrowExceptionFmt(env, "java/lang/IllegalArgumentException", "%s", text.c_str()),
              0);
    expectOnlyPending("java.lang.IllegalArgumentException", text.substr(0, 511));
}

TEST_F(JniSupportTest, NullMessageStringConstructsTheExceptionWithoutMessage) {
    EXPECT_EQ(android::jnihelp::ThrowException(env, "java/lang/IllegalArgumentException",
                                               "(Ljava/lang/String;)V",
                                               static_cast<jstring>(nullptr)),
              0);
    expectOnlyPending("java.lang.IllegalArgumentException", std::nullopt);
}

TEST_F(JniSupportTest, MissingClassOrConstructorFailsWithTheJvmsErrorPending) {
    EXPECT_EQ(jniThrowExceptionFmt(env, "java/lang/NoSuchThrowable", "x"), -1);
    EXPECT_TRUE(logged(kJniHelpTag, ANDROID_LOG_ERROR,
                       "Unable to find exception class java/lang/NoSuchThrowable"));
    std::optional<JavaException> e = takePendingException(env);
    ASSERT_TRUE(e.has_value());
    EXPECT_EQ(e->className, "java.lang.NoClassDefFoundError");

    // java.lang.Object has no constructor taking a String.
    EXPECT_EQ(jniThrowExceptionFmt(env, "java/lang/Object", "x"), -1);
    EXPECT_TRUE(
            logged(kJniHelpTag, ANDROID_LOG_ERROR,
                   "Failed to find constructor for 'java/lang/Object' '(Ljava/lang/String;)V'"));
    e = takePendingException(env);
    ASSERT_TRUE(e.has_value());
    EXPECT_EQ(e->className, "java.lang.NoSuchMethodError");
}

}  // namespace
}  // namespace nuvra::test
