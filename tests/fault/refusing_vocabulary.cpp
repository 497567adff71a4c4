#include "refusing_vocabulary.h"

#include <QStringList>

// Never called: the dispatcher refuses the parameter types before it calls.
QObject *RefusingVocabulary::createComponentObject(QString &) { return nullptr; }
void RefusingVocabulary::logDebug(QString &) {}
void RefusingVocabulary::logError(QString &) {}
QObject *RefusingVocabulary::getZtKey(QString &) { return nullptr; }
int RefusingVocabulary::count(QString &) { return 0; }
QObject *RefusingVocabulary::open(QByteArray &) { return nullptr; }
QStringList RefusingVocabulary::enumContainer(QStringList &) { return {}; }
qulonglong RefusingVocabulary::openContainer(QString &) { return 0; }
int RefusingVocabulary::getContainerType(qulonglong &) { return 0; }
void RefusingVocabulary::closeContainer(qulonglong &) {}
QByteArray RefusingVocabulary::exportCertificate(qulonglong &) { return {}; }
bool RefusingVocabulary::verifyPin(QString &) { return false; }
void RefusingVocabulary::close(QString &) {}
qulonglong RefusingVocabulary::importSessionKey(QByteArray &) { return 0; }
bool RefusingVocabulary::decryptInit(QByteArray &) { return false; }
QByteArray RefusingVocabulary::decrypt(QByteArray &) { return {}; }
QByteArray RefusingVocabulary::getPublicKeyData(QByteArray &) { return {}; }
bool RefusingVocabulary::create(int &) { return false; }
bool RefusingVocabulary::checkTag(int &) { return false; }
QObject *RefusingVocabulary::getChild(int &) { return nullptr; }
QObject *RefusingVocabulary::addSample(int &) { return nullptr; }
QObject *RefusingVocabulary::addStruct(int &) { return nullptr; }
void RefusingVocabulary::update(QString &) {}
QByteArray RefusingVocabulary::build(QByteArray &) { return {}; }
bool RefusingVocabulary::setData(QByteArray &) { return false; }
bool RefusingVocabulary::addBlock(QByteArray &) { return false; }
QByteArray RefusingVocabulary::toByteArray(QByteArray &) { return {}; }
