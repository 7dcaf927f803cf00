#pragma once

#include <QPointF>
#include <QString>
#include <QWidget>

#include <functional>

struct BasicAnimation;

/// Operations on a view, which is the first argument. The identifier of a view is its object name;
/// an empty name is no identifier.
namespace VornNSViewAdditions {

/// The first descendant of that class (or derived from it) with that identifier in any letter
/// case, depth first; null if there is none. A view of the class that does not match hides what it
/// holds. A null identifier matches nothing. Main thread.
[[nodiscard]] QWidget* findViewWithIdentifier(QWidget* view, const QString& identifier,
                                              const QMetaObject& viewType);

// The effects do their work on the main queue and may be called from any thread while the view
// lives. A completion is required, and called on the main thread; once the view has gone, never.
using Completion = std::function<void()>;

/// Gives the view a layer and leaves its running animations in place.
void clearAnimationKeys(QWidget* view);
/// Moves the centre of rotation, in units of the view's size, while the view stays where it is
/// seen. The view has a layer. Main thread.
void setAnchorPoint(QWidget* view, QPointF point);

/// Starts the endless turn of a busy sign, clockwise, and completes at once. A view that is
/// animated already is left alone, and nothing completes.
void rotateViewWithCompletionBlock(QWidget* view, Completion completion);
/// One counter-clockwise turn. The completion is never called.
void rotateNSViewWithCompletionHandler(QWidget* view, const Completion& completion);
/// What a view does as the delegate of its animation: logs that it stopped.
void animationDidStop(QWidget* view, const BasicAnimation& animation, bool finished);
/// Shakes the view sideways.
void nodLeftRightWithCompletionHandler(QWidget* view, Completion completion);
/// Shows one image, then the other, then the first again. Only an image view (a QLabel with an
/// image) does that; any other is left alone, and nothing completes.
void fadeImageWithCompletionHandler(QWidget* view, Completion completion);
/// Blinks once.
void flashOnOffWithCompletionHandler(QWidget* view, Completion completion);

// The repeating forms run the effect `count` times, one after the other, and return at once; a
// count of 0 stands for 3. A run that never completes holds up the next one for ever.
void nodLeftRight(QWidget* view, int count);
void fadeInOut(QWidget* view, int count);
void rotateImage(QWidget* view, int count);
void flashOnOff(QWidget* view, int count = 5);

} // namespace VornNSViewAdditions

/// The first descendant with that identifier in any letter case, whatever its class, depth first;
/// null if there is none. A null identifier matches nothing. Main thread.
[[nodiscard]] QWidget* findObjectWithIdentifier(QWidget* view, const QString& identifier);
