// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "installerwincontroller.h"

#include "appearance/vxappearance.h"
#include "appearance/vxviewextensions.h"
#include "process/vxappleevents.h"
#include "readmedocument.h"
#include "ui_InstallerWindow.h"
#include "utilities/vxbundle.h"
#include "utilities/vxfourcharcode.h"
#include "utilities/vxlocalization.h"
#include "utilities/vxlog.h"
#include "utilities/vxutilities.h"
#include "workspace.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCryptographicHash>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFontMetrics>
#include <QLabel>
#include <QLibrary>
#include <QLoggingCategory>
#include <QMessageBox>
#include <QMutex>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <QTabBar>
#include <QTabWidget>
#include <QTextCursor>
#include <QTextEdit>
#include <QTimer>
#include <QUrl>
#include <QXmlStreamReader>
#include <cstdio>

Q_LOGGING_CATEGORY(lcInstaller, "quillet.installer", QtWarningMsg)

namespace {
QMutex g_labelMutex;
QString g_currentInstallationLabel;

// Texts the set-up shows; marked here so that lupdate finds them.
const char *const kMissingSourcePath = QT_TRANSLATE_NOOP("Quillet", "missing source path");
const char *const kMissingProgramName = QT_TRANSLATE_NOOP("Quillet", "missing program name");
const char *const kMissingSignature = QT_TRANSLATE_NOOP("Quillet", "missing product signature");

constexpr int kAlertFirstButtonReturn = 1000;
constexpr int kAlertSecondButtonReturn = 1001;

QString logFilePath()
{
    return QDir::homePath() + QLatin1String("/Library/Logs/QuilletInstaller.log");
}

// The icon shows at 64 points; a frame of 128 pixels stays sharp at twice
// the density.
QPixmap loadImage(const QString &path, int edge = 128)
{
    if (path.isEmpty() || !QFileInfo(path).isFile())
        return QPixmap();
    const QImage image = Workspace::readImage(path, edge);
    return image.isNull() ? QPixmap() : QPixmap::fromImage(image);
}

// The size the interface file gives its window, or an invalid size. The
// form's own properties come before its children, so the first "geometry"
// is the window's.
QSize interfaceWindowSize(const QByteArray &contents)
{
    QXmlStreamReader xml(contents);
    bool geometry = false;
    QSize size;
    while (xml.readNext() != QXmlStreamReader::Invalid && !xml.atEnd() && size.height() <= 0) {
        if (!xml.isStartElement())
            continue;
        if (xml.name() == QLatin1String("property"))
            geometry = xml.attributes().value(QLatin1String("name")) == QLatin1String("geometry");
        else if (geometry && xml.name() == QLatin1String("width"))
            size.setWidth(xml.readElementText().toInt());
        else if (geometry && xml.name() == QLatin1String("height"))
            size.setHeight(xml.readElementText().toInt());
    }
    return size;
}

// Centred on the screen, where the window shows.
void centre(QWidget *window)
{
    if (const QScreen *screen = QGuiApplication::primaryScreen()) {
        QRect frame = window->frameGeometry();
        frame.moveCenter(screen->availableGeometry().center());
        window->move(frame.topLeft());
    }
}

// The window appears at once, at its interface file's size, before it holds
// anything: its contents need the font configuration, whose first reading
// takes longer than all the rest of the set-up. Set-up then makes and fills
// them, and they are drawn in the first turn of the event loop.
void showFrame(QWidget *window, QSize size)
{
    if (!size.isValid())
        return; // shown when set-up is done
    window->resize(size);
    centre(window);
    window->show();
}
} // namespace

InstallerWinController::InstallerWinController(Options options, QObject *parent)
    : QObject(parent)
    , m_options(std::move(options))
{
    if (m_options.arguments.isEmpty())
        m_options.arguments = QCoreApplication::arguments();
}

InstallerWinController::~InstallerWinController()
{
    if (m_fontWarmUp) {
        m_fontWarmUp->wait();
        delete m_fontWarmUp;
    }
    delete m_window;
}

QString InstallerWinController::currentInstallationLabel()
{
    QMutexLocker lock(&g_labelMutex);
    return g_currentInstallationLabel;
}

void InstallerWinController::setCurrentInstallationLabel(const QString &label)
{
    QMutexLocker lock(&g_labelMutex);
    g_currentInstallationLabel = label;
}

QString InstallerWinController::archiveUrl()
{
    return QStringLiteral("https://www.quillet.dev/downloads/archive/");
}

QString InstallerWinController::argument(const QString &key) const
{
    const QVariant v = m_arguments.value(key);
    return v.typeId() == QMetaType::QString ? v.toString() : QString();
}

void InstallerWinController::extractArguments()
{
    if (m_argumentsExtracted)
        return;
    m_argumentsExtracted = true;
    vxLog(QStringLiteral("arguments: %@"), QVariant(m_options.arguments));
    // The executable's path lands under the empty key, a key without value
    // is not recorded and a value can never begin with "-": all intended.
    QString key = QStringLiteral("");
    for (const QString &arg : std::as_const(m_options.arguments)) {
        if (arg.startsWith(QLatin1Char('-'))) {
            key = arg.mid(1);
            continue;
        }
        if (key.endsWith(QLatin1String("Code"))) {
            QStringList codes = m_arguments.value(key).toStringList();
            codes.append(arg);
            m_arguments.insert(key, codes);
        } else {
            m_arguments.insert(key, arg);
        }
    }
}

QFunctionPointer InstallerWinController::plugInFunction(
    const char *file, const char *symbol, QString *error)
{
    // A QLibrary does not unload its library when it goes.
    QLibrary module(VXBundle::mainBundle().bundlePath() + QLatin1String("/Contents/PlugIns/")
        + QLatin1String(file));
    const QFunctionPointer function = module.resolve(symbol);
    if (!function)
        *error = module.errorString();
    return function;
}

bool InstallerWinController::loadInterface()
{
    QString path = m_options.interfaceFile;
    if (path.isEmpty())
        path = VXBundle::mainBundle().pathForResource(
            QStringLiteral("InstallerWindow"), QStringLiteral("ui"));
    // The bundle's interface file decides what the window holds. While it is
    // the file the program was built with (or the bundle lost its own), the
    // compiled form builds the same window without parsing XML or loading
    // Designer's widget plugins; any other file is loaded as it stands.
    QByteArray contents;
    if (!path.isEmpty() && QFileInfo(path).isFile()) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            m_interfaceError = file.errorString();
            return false;
        }
        contents = file.readAll();
    }
    QWidget *window = nullptr;
    if (contents.isNull()
        || QCryptographicHash::hash(contents, QCryptographicHash::Sha256).toHex()
            == QByteArrayLiteral(QUILLET_INTERFACE_SHA256)) {
        window = new QWidget;
        showFrame(window, interfaceWindowSize(contents));
    }
    startFontWarmUp();
    // The window is light or dark as the desktop is. Asked before the widgets
    // are made, while the fonts are read, so that they are made with the
    // right palette.
    VXAppearance::followDesktopAppearance();
    if (window) {
        Ui::InstallerWindow().setupUi(window);
        // Widgets laid out in a window that is already shown wait for the
        // event loop to show them (QLayout::addChildWidget); set-up reads and
        // changes their visibility before that, so they are shown now.
        if (window->isVisible()) {
            for (QWidget *child : window->findChildren<QWidget *>(Qt::FindDirectChildrenOnly))
                if (!child->testAttribute(Qt::WA_WState_ExplicitShowHide))
                    child->show();
        }
    } else {
        // The form loader's module (interfaceloader.cpp).
        using Load = QWidget *(*)(const QByteArray &contents, QString *error);
        const auto load = reinterpret_cast<Load>(
            plugInFunction("libquilletinterface.so", "quilletLoadInterface", &m_interfaceError));
        if (!load)
            return false;
        window = load(contents, &m_interfaceError);
        if (!window)
            return false;
    }
    m_window = window;
    m_window->setAttribute(Qt::WA_DeleteOnClose, false);
    m_tabView = window->findChild<QTabWidget *>(QStringLiteral("tabView"));
    m_nameField = window->findChild<QLabel *>(QStringLiteral("nameField"));
    m_introField = window->findChild<QLabel *>(QStringLiteral("introField"));
    m_pathField = window->findChild<QLabel *>(QStringLiteral("pathField"));
    m_messageField = window->findChild<QLabel *>(QStringLiteral("messageField"));
    m_iconField = window->findChild<QLabel *>(QStringLiteral("iconField"));
    m_checkmarkField = window->findChild<QLabel *>(QStringLiteral("checkmarkField"));
    m_readMeTextView = window->findChild<QTextEdit *>(QStringLiteral("readMeTextView"));
    m_installButton = window->findChild<QPushButton *>(QStringLiteral("installButton"));
    m_cancelButton = window->findChild<QPushButton *>(QStringLiteral("cancelButton"));
    m_helpButton = window->findChild<QAbstractButton *>(QStringLiteral("helpButton"));
    m_progressIndicator = window->findChild<QProgressBar *>(QStringLiteral("progressIndicator"));
    const bool complete = m_tabView && m_nameField && m_introField && m_pathField && m_messageField
        && m_iconField && m_checkmarkField && m_readMeTextView && m_installButton && m_cancelButton
        && m_helpButton && m_progressIndicator && m_tabView->count() >= 2;
    if (!complete) {
        m_interfaceError
            = QStringLiteral("the interface file lacks one of the installer's controls");
        return false;
    }
    m_titleFormat = m_window->windowTitle();
    m_introFormat = m_introField->text();
    // Hidden at start, whatever the interface file says: a set-up error ends
    // set-up before the steps that would hide them.
    m_progressIndicator->setVisible(false);
    m_messageField->setVisible(false);
    m_checkmarkField->setVisible(false);
    connect(m_installButton, &QPushButton::clicked, this, &InstallerWinController::install);
    connect(m_cancelButton, &QPushButton::clicked, this, &InstallerWinController::cancel);
    connect(
        m_helpButton, &QAbstractButton::clicked, this, &InstallerWinController::openDocumentation);
    // Closing the window quits, at any time, also during a run.
    QApplication::setQuitOnLastWindowClosed(true);
    return true;
}

void InstallerWinController::startFontWarmUp()
{
    // The first use of a font reads the font configuration and its caches,
    // which takes longer than all the rest of the set-up. A worker does it
    // while the widgets are made and filled; Qt's font database serialises
    // its users, so the first widget that needs a font waits for it at most.
    // It starts once the window is mapped: before, it would compete with the
    // X server for the processor.
    m_fontWarmUp = QThread::create([] { QFontMetrics(QApplication::font()).height(); });
    m_fontWarmUp->start();
    // Never left running while the application's statics go.
    connect(qApp, &QCoreApplication::aboutToQuit, m_fontWarmUp,
        [thread = m_fontWarmUp] { thread->wait(); });
}

void InstallerWinController::redirectOutputToLog()
{
    const QString path = logFilePath();
    QDir().mkpath(QFileInfo(path).path());
    const QByteArray native = QFile::encodeName(path);
    fflush(stdout);
    if (!std::freopen(native.constData(), "a+", stdout))
        std::freopen("/dev/null", "a+", stdout);
    fflush(stderr);
    if (!std::freopen(native.constData(), "a+", stderr))
        std::freopen("/dev/null", "a+", stderr);
}

void InstallerWinController::awakeFromNib()
{
    // 1. Events first, so a "Done" from the product is never missed.
    installAppleEvents();

    // 2. Logging: a product starts us with key/value pairs.
    const QStringList &argv = m_options.arguments;
    if (argv.size() >= 3 && argv.at(1) != QLatin1String("-AppleLanguages")) {
        if (m_options.redirectOutput)
            redirectOutputToLog();
    } else {
        vxLog(QStringLiteral("direct invocation"));
    }

    if (!loadInterface()) {
        vxLog(QStringLiteral("cannot load the installer window: %@"), m_interfaceError);
        return;
    }

    // 3.
    m_nameField->setText(QStringLiteral(""));
    m_tabView->tabBar()->hide();
    m_tabView->setDocumentMode(true);
    selectTab(1);

    // 4.
    extractArguments();

    // 5. Source path: the nearest enclosing ".app" of our own bundle.
    if (!m_arguments.contains(QStringLiteral("sourcePath"))) {
        QString path = QFileInfo(VXBundle::mainBundle().bundlePath()).path();
        if (path.size() >= 2) {
            do {
                if (path.endsWith(QLatin1String(".app")))
                    break;
                path = QFileInfo(path).path();
                vxLog(QStringLiteral("shortened path = %@"), path);
            } while (path.size() > 1);
        }
        if (!path.endsWith(QLatin1String(".app"))) {
            playDoneSound();
            showSetupError(QString::fromLatin1(kMissingSourcePath));
            return;
        }
        m_arguments.insert(QStringLiteral("sourcePath"), path);
    }
    const QString sourcePath = argument(QStringLiteral("sourcePath"));

    // 6.
    if (!m_arguments.contains(QStringLiteral("productName"))) {
        const QString name = QFileInfo(sourcePath).completeBaseName();
        if (name.isEmpty()) {
            showSetupError(QString::fromLatin1(kMissingProgramName));
            return;
        }
        m_arguments.insert(QStringLiteral("productName"), name);
    }
    const QString productName = argument(QStringLiteral("productName"));

    // 7.
    m_window->setWindowTitle(vxFormat(m_titleFormat, productName));

    // 8.
    const std::optional<VXBundle> bundle = VXBundle::open(sourcePath);
    const QVariantMap info = bundle ? bundle->infoDictionary() : QVariantMap();
    if (bundle && !bundle->infoError().isEmpty())
        qCWarning(lcInstaller) << "cannot read the product's Info dictionary:"
                               << bundle->infoError();
    auto infoString = [&](const char *key) {
        const QVariant v = info.value(QLatin1String(key));
        return v.typeId() == QMetaType::QString ? v.toString() : QString();
    };

    // 9. Icon.
    QPixmap icon = loadImage(argument(QStringLiteral("iconPath")));
    const QString iconFile = infoString("CFBundleIconFile");
    if (icon.isNull() && bundle && !iconFile.isEmpty()) {
        QString iconPath = bundle->pathForResource(iconFile, QStringLiteral("icns"));
        if (iconPath.isEmpty())
            iconPath = bundle->pathForResource(iconFile);
        icon = loadImage(iconPath);
    }
    if (icon.isNull()) {
        const QIcon workspaceIcon = Workspace::iconForFile(sourcePath);
        if (!workspaceIcon.isNull())
            icon = workspaceIcon.pixmap(128, 128);
    }
    if (!icon.isNull()) {
        m_iconField->setPixmap(icon);
        QApplication::setWindowIcon(QIcon(icon));
    }

    // 10, 11.
    QString version = argument(QStringLiteral("version"));
    if (version.isNull())
        version = infoString("CFBundleShortVersionString");
    QString minimum = argument(QStringLiteral("minSystemVersion"));
    if (minimum.isNull())
        minimum = infoString("LSMinimumSystemVersion");
    const bool systemTooOld = !minimum.isNull()
        && VXUtilities::compareVersion(VXUtilities::systemVersionString(), minimum) == -1;

    // 12. Destination.
    QString destination = argument(QStringLiteral("destinationPath"));
    if (destination.isNull())
        destination = findPreferredDestinationFor(productName);
    if (destination.isEmpty() || !QFileInfo(QFileInfo(destination).path()).isDir())
        destination = applicationsDirectory() + QLatin1Char('/') + QFileInfo(sourcePath).fileName();

    // 13. Wrapper.
    const QString wrapper = argument(QStringLiteral("wrapperPath"));
    if (!wrapper.isNull()) {
        const QString sourceFolder = QFileInfo(sourcePath).path();
        if (wrapper.startsWith(sourceFolder) && QFileInfo::exists(wrapper)) {
            vxLog(QStringLiteral("wrapper = %@"), wrapper);
            const QString destinationFolder = QFileInfo(destination).path();
            const QString wrapperName = QFileInfo(wrapper).fileName();
            if (QFileInfo(destinationFolder).fileName() != wrapperName)
                destination = destinationFolder + QLatin1Char('/') + wrapperName + QLatin1Char('/')
                    + QFileInfo(destination).fileName();
        } else {
            m_arguments.remove(QStringLiteral("wrapperPath"));
        }
    }

    // 14.
    m_arguments.insert(QStringLiteral("destinationPath"), destination);
    m_pathField->setText(localizedPath(destination));

    // 15. Codes: the quit list always holds the product's own codes.
    QStringList productCode = m_arguments.value(QStringLiteral("productCode")).toStringList();
    if (!m_arguments.contains(QStringLiteral("productCode"))) {
        const QString signature = infoString("CFBundleSignature");
        if (signature.isNull()) {
            showSetupError(QString::fromLatin1(kMissingSignature));
            return;
        }
        productCode = QStringList { signature };
        m_arguments.insert(QStringLiteral("productCode"), productCode);
    }
    if (m_arguments.contains(QStringLiteral("quitCode"))) {
        QStringList quitCode = m_arguments.value(QStringLiteral("quitCode")).toStringList();
        quitCode.append(productCode);
        m_arguments.insert(QStringLiteral("quitCode"), quitCode);
    } else {
        m_arguments.insert(QStringLiteral("quitCode"), productCode);
    }
    vxLog(QStringLiteral("Updated arguments: %@"), QVariant(m_arguments));

    // 16, 17.
    m_nameField->setText(
        version.isNull() ? productName : productName + vxFormat(QStringLiteral(" %@"), version));
    m_introField->setText(vxFormat(m_introFormat, productName));

    // 18. Help button.
    const QString documentationPath = argument(QStringLiteral("documentationPath"));
    if (!documentationPath.isNull())
        m_helpButton->setVisible(QFileInfo::exists(documentationPath));
    else
        m_helpButton->setVisible(m_arguments.contains(QStringLiteral("documentationURL")));
    m_messageField->setVisible(false);

    // 19. Read-me.
    const QString readMePath = argument(QStringLiteral("readMePath"));
    if (!readMePath.isNull() && QFileInfo::exists(readMePath)) {
        // The read-me keeps dark text on a light page whatever the desktop's theme.
        VXViewExtensions::useLightAquaAppearance(m_readMeTextView, true);
        QString error;
        if (!ReadMeDocument::load(readMePath, m_readMeTextView->document(), &error))
            qCWarning(lcInstaller) << "read-me not shown:" << error;
        m_readMeTextView->moveCursor(QTextCursor::Start);
        selectTab(0);
    } else {
        selectTab(1);
    }
    m_checkmarkField->setVisible(false);

    // 20. Bring the window forward, at the size its interface file gives it.
    if (!m_window->isVisible())
        centre(m_window);
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
    m_installButton->setFocus(); // so Return reaches the default button, not the read-me
    // Asking the window manager takes a connection of its own and a few
    // milliseconds: done after the window's first drawing (eventFilter).
    m_window->installEventFilter(this);

    // 21.
    if (systemTooOld)
        showSystemVersionAlert(productName, version, minimum);
}

bool InstallerWinController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_window && event->type() == QEvent::Paint) {
        m_window->removeEventFilter(this);
        QTimer::singleShot(0, this, &InstallerWinController::bringInstallerToFront);
    }
    return QObject::eventFilter(watched, event);
}

void InstallerWinController::showSetupError(const QString &message)
{
    vxLog(QStringLiteral("%@"), message);
    showFinalMessage(message);
    if (m_window && m_window->windowTitle().contains(QLatin1Char('%')))
        m_window->setWindowTitle(QStringLiteral(""));
    if (m_window) {
        m_window->show();
        m_window->raise();
        m_window->activateWindow();
    }
}

void InstallerWinController::selectTab(int index)
{
    m_tabView->setCurrentIndex(index);
    m_installButton->setText(index != 0 ? vxLocalized(QT_TRANSLATE_NOOP("Quillet", "Install"))
                                        : vxLocalized(QT_TRANSLATE_NOOP("Quillet", "Continue")));
    if (m_arguments.contains(QStringLiteral("readMePath")))
        m_cancelButton->setText(index != 0 ? vxLocalized(QT_TRANSLATE_NOOP("Quillet", "Go Back"))
                                           : vxLocalized(QT_TRANSLATE_NOOP("Quillet", "Cancel")));
}

void InstallerWinController::installAppleEvents()
{
    VXAppleEvents::installHandler(VXFourCharCode::make("SinS"), VXFourCharCode::make("Done"),
        [this](const QString &text) { installationDone(text); });
    vxLog(QStringLiteral("AppleEvents installed"));
}

void InstallerWinController::installationDone(const QString &directParameter)
{
    const QString label = currentInstallationLabel();
    vxLog(QStringLiteral("received Done event (%@), current installation: %@"), directParameter,
        label);
    if (!label.isNull() && label == directParameter) {
        vxLog(QStringLiteral("installation finished"));
        QMetaObject::invokeMethod(
            this, [this] { installationFinished(QString()); }, Qt::QueuedConnection);
    }
}

void InstallerWinController::showSystemVersionAlert(
    const QString &productName, const QString &version, const QString &minimum)
{
    auto *alert = new QMessageBox(m_window);
    alert->setWindowModality(Qt::WindowModal);
    alert->setIcon(QMessageBox::Information);
    const QString stopIcon = VXBundle::mainBundle().pathForResource(
        QStringLiteral("AlertStopIcon"), QStringLiteral("svg"));
    const QPixmap pixmap = loadImage(stopIcon);
    if (!pixmap.isNull())
        alert->setIconPixmap(pixmap.scaled(64, 64, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    alert->setText(vxLocalizedFormat(QT_TRANSLATE_NOOP("Quillet",
                                         "%1$@ %2$@ cannot be installed on this computer because "
                                         "it requires macOS %3$@ or newer."),
        productName, version, minimum));
    alert->setInformativeText(
        vxLocalizedFormat(QT_TRANSLATE_NOOP("Quillet",
                              "To check if an older version of %@ is available for your computer, "
                              "please visit our software archive."),
            productName));
    QPushButton *quit = alert->addButton(
        vxLocalized(QT_TRANSLATE_NOOP("Quillet", "Quit")), QMessageBox::AcceptRole);
    QPushButton *visit = alert->addButton(
        vxLocalized(QT_TRANSLATE_NOOP("Quillet", "Visit Archive")), QMessageBox::ActionRole);
    alert->setDefaultButton(quit);
    alert->setObjectName(QStringLiteral("systemVersionAlert"));
    connect(alert, &QMessageBox::finished, this, [this, alert, visit](int) {
        systemVersionAlertDidEnd(
            alert->clickedButton() == visit ? kAlertSecondButtonReturn : kAlertFirstButtonReturn);
    });
    alert->open();
}

void InstallerWinController::systemVersionAlertDidEnd(int returnCode)
{
    if (returnCode == kAlertSecondButtonReturn)
        QDesktopServices::openUrl(QUrl(archiveUrl()));
    terminate();
}

void InstallerWinController::animateProgress(bool on)
{
    m_progressIndicator->setVisible(on);
    m_progressIndicator->setMaximum(0); // busy: spins while a run is under way
}

void InstallerWinController::terminate()
{
    Q_EMIT terminating();
    QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}
