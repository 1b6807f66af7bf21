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

// A null Surface throws NullPointerException without asking the platform; one without a native
// object throws IllegalArgumentException naming what was looked for.
TEST_F(JniSupportTest, MissingSurfaceThrowsAndDiscardsNothing) {
    for (jobject surface : {jobject{nullptr}, emptyJavaSurface()}) {
        const char* npe = "java.lang.NullPointerException";
        const char* iae = "java.lang.IllegalArgumentException";
        EXPECT_EQ(getNativeWindow(env, surface), nullptr);
        expectOnlyPending(surface ? iae : npe,
                          surface ? "Surface had no valid native window." : "surface");
        EXPECT_EQ(getSurface(env, surface), nullptr);
        expectOnlyPending(surface ? iae : npe,
                          surface ? "Surface had no valid native Surface." : "surface");
        if (!surface) {
            EXPECT_EQ(host::callCount("jni.android_view_Surface_getNativeWindow"), 0u);
        }
    }
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

// A pending exception is discarded with its summary (class, and message when it has one). The
// message string is made before the pending exception: making it while an exception is pending
// would itself be a JNI misuse.
TEST_F(JniSupportTest, PendingExceptionIsDiscardedWithItsSummary) {
    const struct {
        const char *pending, *pendingMessage, *thrown, *thrownClass, *message, *warning;
    } cases[] = {
            {"java/lang/IllegalStateException", "m", "java/lang/IllegalArgumentException",
             "java.lang.IllegalArgumentException", "bad 7",
             "Discarding pending exception (java.lang.IllegalStateException: m) to throw "
             "java/lang/IllegalArgumentException"},
            {"java/lang/UnsupportedOperationException", nullptr, "java/lang/NullPointerException",
             "java.lang.NullPointerException", "pixels",
             "Discarding pending exception (java.lang.UnsupportedOperationException) to throw "
             "java/lang/NullPointerException"},
    };
    for (const auto& c : cases) {
        host::clearCapturedLogs();
        jstring message = env->NewStringUTF(c.message);
        throwNew(c.pending, c.pendingMessage);
        EXPECT_EQ(android::jnihelp::ThrowException(env, c.thrown, "(Ljava/lang/String;)V", message),
                  0);
        expectOnlyPending(c.thrownClass, c.message);
        EXPECT_EQ(logTexts(kJniHelpTag, ANDROID_LOG_WARN), std::vector<std::string>{c.warning});
    }
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
